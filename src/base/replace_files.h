#pragma once

#include "base/file_text.h"

#include <string>
#include <vector>

namespace qvcd {

// How files get their new texts, so that nothing is lost whatever happens: each new text is written into a
// sibling file ".qvcd-new-..." and flushed to the disk before it takes the target's name; then the folder is
// flushed. The target of a symbolic link is replaced, not the link. A file keeps its owner, its mode and its
// extended attributes.
//
// What cannot be renamed over (a device, a file of the kernel, a file that is mounted on its own or stands in
// a folder that cannot be written) is written in place and flushed; when that fails half-way, the old text is
// put back as far as possible.
//
// The renames of several files are written into a journal, kJournal, before the first of them: after a crash
// recover_file_sets() finishes them, so that all files are old or all are new. Where the journal cannot be
// written each file is still whole. A text that is written in place is in the journal too, since a crash
// might tear it.

/// One file and its new text. Paths are paths of this machine.
struct FileChange {
    enum class Kind {
        plain,  ///< an existing file keeps its mode, a new one gets `mode` less the umask
        secret, ///< the file gets exactly `mode`
        device, ///< a request to a device or the kernel: written in place, never created (ENOENT)
    };
    std::string path;
    std::string text;
    unsigned mode = 0666;
    Kind kind = Kind::plain;
    std::vector<std::size_t> after = {}; ///< changes of the set without which it is not made: ECANCELED
};

/// Files that change together, once.
class FileSet {
  public:
    enum class Extent {
        each, ///< what can be replaced is, whatever becomes of the others
        all,  ///< no file is replaced (ECANCELED) while one of the new texts is not on the disk
    };

    /// Returns how many were added before.
    std::size_t add(FileChange change)
    {
        changes_.push_back(std::move(change));
        return changes_.size() - 1;
    }

    /// Replaces the files. Returns what became of each, in the order they were added. Lets go of the command
    /// lock while it waits for the disk.
    std::vector<FileResult> commit(Extent extent = Extent::each);

    /// The same for callers who must keep the command lock, if they hold it.
    std::vector<FileResult> commit_here(Extent extent = Extent::each);

    const std::vector<FileChange> &changes() const { return changes_; }

  private:
    std::vector<FileChange> changes_;
};

/// The file that a path stands for: the target of its symbolic links, existing or not, in the real folder, so
/// that two names of one file give one path. Returns 0, or the errno of what keeps it from being known.
int real_file(const std::string &path, std::string &real);

/// False when a replacement of the file may have happened without being on the disk: a name in its folder
/// changed and could not be flushed since. Whoever finds in a file what he was to write there asks this
/// before he says that it is saved.
bool is_flushed(const std::string &path);

/// Finishes replacements that failed and that a start would finish nevertheless, as far as the disk allows. A
/// FileSet does so before it replaces its files; who looks for what there is to replace does so before.
void settle_file_sets();

inline constexpr char kJournal[] = "/var/lib/qv/save.journal"; // of the appliance

/// After a crash: finishes the replacements that the journal names and whose new text is there whole. Call it
/// before any file is read that a FileSet may have been replacing, and only in the one daemon of an
/// appliance. Returns how many it finished.
int recover_file_sets();

/// Removes the new texts that processes left in a folder that are no more.
void remove_left_overs(const std::string &folder);

} // namespace qvcd

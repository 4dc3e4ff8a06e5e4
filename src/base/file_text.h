#pragma once

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Whole files. Paths are paths of this machine (platform/sysroot.h).

inline constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20;

/// What reading a file gave: its bytes, or why not. There is no such thing as a part of a file.
struct FileText {
    int error = 0; ///< 0, or the errno of what failed; EFBIG: the file is larger than it may be
    std::string text;

    /// There is no such file. Only this may be taken for an empty one.
    bool missing() const { return error == ENOENT || error == ENOTDIR; }
};

/// Reads a file. Never blocks: a FIFO is refused (ESPIPE), a device that has nothing to say is too (EAGAIN).
/// A folder cannot be read (EISDIR). Works for files of the kernel, whose size reads as 0.
FileText read_whole_file(const std::string &path, std::size_t limit = kMaxFileBytes);

/// The same for those to whom every failure is one: nothing, never a part.
std::optional<std::string> read_file(const std::string &path, std::size_t limit = kMaxFileBytes);

bool file_exists(const std::string &path);

/// The same for those who must not take "not known" for "no": 0, or the errno of what failed; ENOENT and
/// ENOTDIR: there is no such file.
int look_for_file(const std::string &path);

/// What became of a change of a file. It has happened when the file has its new name; only then the folder is
/// flushed. So it may fail and have happened: readers find the new text, a power failure may bring the old
/// one back. Who keeps in memory what a file says goes by `changed`, and tells of `error` in any case.
struct FileResult {
    int error = 0;        ///< 0: it is on the disk; or the errno of what failed
    bool changed = false; ///< false: the old text is there

    bool operator==(const FileResult &) const = default;
};

/// What clients are told of a change that has happened and failed.
inline constexpr char kNotFlushed[] = "##Changed, but not known to be on the disk#";

// One file gets a new text in one step: base/replace_files.h says how. They wait for the disk with the
// command lock held: who can bear it lets go (base/command_lock.h).

/// An existing file keeps its mode; a new one gets `mode` less the umask.
FileResult replace_file(const std::string &path, std::string_view text, unsigned mode = 0666);

/// The file gets exactly this mode, whatever it had.
FileResult replace_secret_file(const std::string &path, std::string_view text, unsigned mode = 0600);

/// Removes a file for good: its folder is flushed to the disk.
FileResult remove_file(const std::string &path);

/// As replace_file(), 0 or the errno of what failed, for a file that a client named, which may be in a folder
/// that others may write to ("/tmp"). There a link or somebody else's file is replaced, never written
/// through, and a device is refused (EPERM); elsewhere links are followed and devices written. The text comes
/// in a new file of our own with at most the old one's rights and `mode` less the umask.
int replace_named_file(const std::string &path, std::string_view text, unsigned mode = 0666);

} // namespace qvcd

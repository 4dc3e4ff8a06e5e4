#pragma once

#include "base/replace_files.h"
#include "platform/fd.h"

#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace qvcd {

// The steps of replacing files (base/replace_files.h). What returns an int returns 0, or the errno of what
// failed.

inline constexpr unsigned kUmask = 022; // the daemon's own; asking for it would change it for a moment

/// The folder of a file.
std::string folder_of(const std::string &path);

/// Flushes the names in a folder to the disk; the second one a folder that is open. Keeps what the third one
/// says: false when they changed and could not be flushed since.
int flush_folder(const std::string &folder);
int flush_folder(const std::string &folder, int fd);
bool is_folder_flushed(const std::string &folder);
bool all_folders_flushed();

/// Makes a folder and those above it that are missing, mode 0755, to stay.
int make_folder(const std::string &folder);

int write_all(int fd, std::string_view text);
int flush_file(int fd);

/// Gives an existing file another text where it stands. After a failure the old one is put back.
int write_in_place(const std::string &path, std::string_view text);

/// As base/replace_files.h has it, for a folder that is open.
void remove_left_overs(int folder);

/// A file for a new text, open for writing, mode 0600, under a name that nobody else has. The destructor
/// removes it.
class NewFile {
  public:
    /// Below this open folder, for openat(2), or by whole paths.
    explicit NewFile(int folder = AT_FDCWD) : folder_(folder) {}
    ~NewFile() { remove(); }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    int make(const std::string &folder = {});
    int fd() const { return fd_.get(); }
    int flush(); ///< and closes it
    int rename_to(const std::string &target);
    int remove();
    const std::string &path() const { return path_; } ///< empty: there is none

    static bool is_name(std::string_view path);

  private:
    int folder_;
    Fd fd_;
    std::string path_;
};

/// One file on its way to its new text, in steps, so that those of several files go together.
class Replacement {
  public:
    explicit Replacement(const FileChange &change); // which outlives this

    int prepare(); ///< writes the new text beside the target, and has the disk begin with it
    int flush() { return new_.path().empty() ? 0 : new_.flush(); } ///< waits until it is on the disk
    int put();                                                     ///< gives it to the target

    int drop() { return new_.remove(); } ///< what was written beside

    const std::string &target() const { return target_; }
    const std::string &text() const { return change_.text; }
    const std::string &new_path() const { return new_.path(); } ///< empty: nothing was written beside
    bool in_place() const { return in_place_; }

  private:
    int write_beside(const std::string &folder, const struct stat *old);
    void write_spare(const struct stat &old);

    const FileChange &change_;
    std::string target_;
    NewFile new_;
    bool in_place_ = false;
};

} // namespace qvcd

#pragma once

#include "platform/fd.h"

#include <string>
#include <string_view>
#include <sys/types.h>

namespace qvcd {

/// A small file that shows that a process lives: it holds a lock on it (flock(2)) as long as the descriptor
/// is open, whatever the file says.
struct LockFile {
    Fd fd;               ///< open unless there is a failure
    bool ours = false;   ///< we hold the lock; else somebody else does
    std::string failure; ///< why the file cannot be had at all
};

/// Opens the file, which is made with `mode` if need be, and tries to lock it. Never waits, never follows a
/// symbolic link, takes regular files only. What is in the file stays.
LockFile open_lock_file(const std::string &path, mode_t mode);

/// What the file says, at most 31 bytes.
std::string read_lock_file(const LockFile &file);

/// Replaces what the file says. False with errno set when that failed.
bool write_lock_file(const LockFile &file, std::string_view text);

/// Removes the name, unless it is another file's by now. The lock holds on until the descriptor is closed.
void remove_lock_file(const LockFile &file, const std::string &path);

} // namespace qvcd

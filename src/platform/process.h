#pragma once

#include <string>

namespace qvcd {

/// Puts /dev/null in the place of each of stdin, stdout and stderr that is closed: else a file that is opened
/// next gets what is meant for them. Call it before anything is opened.
void qv_fill_standard_descriptors();

/// Turns the process into a daemon: fork, new session, working folder "/", umask 022, stdin and stdout on
/// /dev/null. stderr stays where it was until qv_daemon_ready(), so that failures of start-up can be seen,
/// and the parent does not exit before that (with status 0) or the daemon's death (1). Call it before any
/// thread is started. Returns 0, or -1 after reporting the failure; the process then goes on as it is.
int qv_daemonize();

/// Start-up is over, the daemon serves: tells the service manager (READY=1, sd_notify(3)); a daemonised
/// process lets go of its stderr and of its waiting parent.
void qv_daemon_ready();

/// Writes the process ID and a newline to `path` (0644) and holds a lock on the file (flock(2)) for the life
/// of the process. A file left by a dead process is taken over. Returns 0, or -1 after reporting why: the
/// folder does not exist or is not writable, the name is a symbolic link or no regular file, or a live daemon
/// holds the file; it is then left alone.
int qv_create_pid_file(const std::string &path);

/// Removes the file if this process created it.
void qv_remove_pid_file(const std::string &path);

} // namespace qvcd

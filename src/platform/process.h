#pragma once

#include <string>

namespace qvcd {

/// Turns the process into a daemon: fork, new session, working folder "/", umask 022, stdin and stdout on
/// /dev/null. stderr stays where it was until qv_daemon_ready(), so that failures of start-up can be seen.
/// Returns 0, or -1 after reporting the failure (the process then stays in the foreground).
int qv_daemonize();

/// Start-up is over: a daemonised process lets go of its stderr.
void qv_daemon_ready();

/// Writes the process ID and a newline to `path` (0644) and holds a lock on the file (flock(2)) for the life of
/// the process. A file left by a dead process is replaced. Returns 0, or -1 after reporting why: the folder is
/// not writable, or a live daemon holds the file, which is then left alone.
int qv_create_pid_file(const std::string &path);

/// Removes the file if this process created it.
void qv_remove_pid_file(const std::string &path);

} // namespace qvcd

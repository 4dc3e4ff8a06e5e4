#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace qvcd {

/// What is told of a command that failed: its status (base/shell.h), and the first of what it said on stderr.
using LateFailure = std::function<void(int status, const std::string &errors)>;

/// Runs the shell command after `delay`, and does not wait for it; `limit` as in base/shell.h. At most 100
/// commands wait or run so; false, with a log line, for one more, and once the daemon stops. `failed` is
/// called on a thread of its own.
bool shell_run_later(std::chrono::seconds delay, std::string command, std::chrono::milliseconds limit,
                     LateFailure failed);

/// Forgets what is not due yet, with a log line, and takes no more. True when none is running any more.
bool shell_stop_later();

} // namespace qvcd

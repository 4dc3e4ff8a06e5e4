#pragma once

#include <chrono>
#include <string>

namespace qvcd {

/// Runs the shell command after `delay`, and does not wait for it; `limit` as in base/shell.h. At most 100
/// commands wait or run so; false, with a log line, for one more, and once the daemon stops.
bool shell_run_later(std::chrono::seconds delay, std::string command, std::chrono::milliseconds limit);

/// Forgets what is not due yet, with a log line, and takes no more. True when none is running any more.
bool shell_stop_later();

} // namespace qvcd

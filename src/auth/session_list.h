#pragma once

#include <span>

namespace qvcd {

/// Replaces the file "/tmp/current_sessions", from which other programs of the appliance read the numbers of
/// the live sessions: one a line, decimal. The numbers are credentials: a new file has mode 0600. What
/// somebody else put in its place is replaced too (base/fresh_file.h). A file that cannot be written is
/// passed over; the log says so once until it can be written again. Call under the command lock.
void session_write_list(std::span<const int> numbers);

} // namespace qvcd

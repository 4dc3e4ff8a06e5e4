#pragma once

#include <cstddef>
#include <string>

namespace qvcd {

/// Sends one command line to the configuration daemon of another unit over TCP as session 0, and puts the
/// reply lines, each with its newline and without the closing mark and code, into `reply` (at most `limit`
/// bytes; the rest is read and dropped). `port` is numeric; a host name as `address` may take longer to look
/// up. `flags` goes out as the third word of the greeting. Waits 2 s to connect and 3 s for the whole answer.
/// Returns the command's result code, or -1 and an empty `reply` when the unit cannot be reached, does not
/// answer in time, breaks off, or the command holds a newline. Blocks: call without the command lock.
int qvcd_remote_buf_send_command(const std::string &address, const std::string &port, int flags,
                                 const std::string &command, std::string &reply, std::size_t limit);

} // namespace qvcd

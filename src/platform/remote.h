#pragma once

#include <string>

namespace qvcd {

/// Sends one command line to the configuration daemon of another unit over TCP as session 0, and puts the reply
/// lines, without the closing mark and code, into `reply` (at most `limit` bytes). Waits 2 s to connect and 3 s
/// for the whole answer. Returns the command's result code (0 or more), or -1 when the unit cannot be reached,
/// does not answer in time or breaks off. Blocks: call without the command lock.
int qvcd_remote_buf_send_command(const std::string &address, const std::string &port, int flags,
                                 const std::string &command, std::string &reply, std::size_t limit);

} // namespace qvcd

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvcd::client {

// Files of this machine that a command line names. "-" is standard input or output. They throw UsageError.

/// All of a file, at most `limit` bytes.
std::string read_local_file(const std::string &name, std::size_t limit);

/// Replaces a file in one step; a new one is readable for its owner only. What is no file (a device, a pipe)
/// is written to.
void write_local_file(const std::string &name, std::string_view text);

} // namespace qvcd::client

#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace qvcd {

/// The first bytes of an attribute file of the kernel or of a state file of another program: at most `limit`.
/// `device_path` is resolved below the sysroot. Nothing when the file cannot be opened or read. Never waits
/// on a FIFO.
std::optional<std::string> read_small_file(const std::string &device_path, std::size_t limit = 4096);

/// The same without what follows the first line, and without its newline; empty when there is no such file.
std::string read_first_line(const std::string &device_path);

} // namespace qvcd

#pragma once

#include <string>
#include <vector>

namespace qvcd::client {

// The lines that a user typed into the shell, in "history" of his state folder (client/private_file.h), which
// only he can read. Several shells may add to it at once. Where it cannot be used, there is no history.

inline constexpr std::size_t kHistoryLines = 500;

/// The last lines, the oldest first.
std::vector<std::string> load_history();

void add_to_history(const std::string &line);

} // namespace qvcd::client

#pragma once

#include <span>
#include <string>

namespace qvcd {

// What qvmeta does. Each gets the words behind its own name and returns the exit status: 0, 1 for errors in
// what it looked at or could not do, kUsageStatus for words that it does not understand.

inline constexpr int kUsageStatus = 2;

using Words = std::span<char *const>;

int check_command(Words words);
int doc_command(Words words);
int diff_command(Words words); ///< 1 also when an upgrade loses what users have saved
int new_command(Words words);

/// "qvmeta: ..." on stderr; kUsageStatus.
int usage_error(const std::string &what);

} // namespace qvcd

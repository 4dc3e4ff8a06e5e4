#pragma once

#include <string>
#include <vector>

namespace qvcd::client {

/// The words of a typed line, as a shell splits them: quotes and backslash keep blanks. Empty for a blank
/// line and for a comment ("#" in front). Throws UsageError when a quote is left open.
std::vector<std::string> split_typed_line(const std::string &line);

} // namespace qvcd::client

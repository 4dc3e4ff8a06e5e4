#pragma once

#include <cstdio>
#include <string_view>

namespace qvcd {

/// Parses one line and runs its command under the command lock. Returns the handler's result; 1 for a blank
/// or comment line or when the daemon is stopping, 0 for a line of separators only.
int cmd_parse(unsigned mask, std::string_view line, std::FILE *out);

} // namespace qvcd

#pragma once

#include <cstdio>
#include <string_view>

namespace qvcd {

class WaitHooks;

/// Parses one line and runs its command under the command lock, with `hooks` around its waits. Returns the
/// handler's result; 1 for a blank or comment line or when the daemon is stopping, 0 for a line of separators
/// only.
int cmd_parse(unsigned mask, std::string_view line, std::FILE *out, WaitHooks *hooks = nullptr);

} // namespace qvcd

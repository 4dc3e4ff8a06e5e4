#pragma once

#include "base/caller.h"

#include <cstdio>
#include <string_view>

namespace qvcd {

class WaitHooks;

/// Parses one line and runs its command under the command lock, with `hooks` around its waits. Returns the
/// handler's result; 1 for a blank or comment line, when the daemon is stopping, or with an error line when
/// the command is not open to the stranger who sent it; 0 for a line of separators only.
int cmd_parse(unsigned mask, std::string_view line, std::FILE *out, WaitHooks *hooks = nullptr,
              const Caller &caller = kOwnCaller);

} // namespace qvcd

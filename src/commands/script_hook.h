#pragma once

#include "base/args.h"

namespace qvcd {

/// Runs an optional script of the appliance with a command's arguments, and waits with the command lock let
/// go, as base/shell.h has it; the same script never runs twice at once. Each argument reaches the script as
/// one word, whatever a client put into it. A missing script is passed over; arguments beyond 4,095 bytes of
/// command line are left out. Returns 0.
int cmd_script_hook(const char *script, const Args &argv);

} // namespace qvcd

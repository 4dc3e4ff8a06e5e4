#pragma once

#include "base/args.h"

#include <string_view>

namespace qvcd {

// The door through which an apply function or a describer runs a command without knowing the command table.
// The command framework fills it when it builds its table.

using CommandDoor = int (*)(Request &request, std::string_view name, Args args, std::FILE *out);

void set_command_door(CommandDoor door);

/// Runs the command `name` as the table's handler would; `args` starts with the sub-command if there is one.
/// Returns the handler's result, 1 when the door is closed.
int run_command(Request &request, std::string_view name, Args args, std::FILE *out);

} // namespace qvcd

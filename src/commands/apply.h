#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord applyRecord;

/// Runs the apply actions of the named APIs and groups, or of everything, where a change waits to be applied;
/// each distinct action once. Lets go of the command lock while an action runs.
int command_apply(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

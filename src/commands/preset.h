#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord presetRecord;

/// Shows, compares, records and loads presets (commands/preset_store.h). Closes with 0 whatever the
/// sub-command's result.
int command_preset(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

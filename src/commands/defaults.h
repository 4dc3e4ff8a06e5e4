#pragma once

#include "commands/command.h"

namespace qvcd {

// Which APIs carry change flags or differ from their defaults, and the way back to defaults.

extern const CommandRecord checkmodRecord;
extern const CommandRecord checkappRecord;
extern const CommandRecord checkdefRecord;
extern const CommandRecord defaultRecord;
extern const CommandRecord factoryResetRecord;
extern const CommandRecord reloadRecord;

/// Puts APIs back to their defaults in the settings tree and raises their flags; saves and applies nothing.
int command_default(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

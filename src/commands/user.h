#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord userRecord;

int command_user(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

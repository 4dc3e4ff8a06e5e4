#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord getRecord;
extern const CommandRecord getiRecord;
extern const CommandRecord getvRecord;
extern const CommandRecord getdRecord;
extern const CommandRecord getdvRecord;
extern const CommandRecord introspectRecord;

int command_get(Request &request, Args &argv, std::FILE *out);
int command_getd(Request &request, Args &argv, std::FILE *out);
int command_introspect(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

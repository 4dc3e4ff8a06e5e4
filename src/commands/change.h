#pragma once

#include "commands/command.h"

namespace qvcd {

// Commands that chain set, save, apply and revert, and those of list-like APIs.

extern const CommandRecord revertRecord;
extern const CommandRecord updateRecord;
extern const CommandRecord modifyRecord;
extern const CommandRecord addRecord;
extern const CommandRecord removeRecord;

/// Reads changed APIs back from the system; without a name, or with one empty name, all of them. May let go
/// of the command lock.
int command_revert(Request &request, Args &argv, std::FILE *out);

/// set, save and apply of "name=value" arguments; when the set fails, revert.
int command_update(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

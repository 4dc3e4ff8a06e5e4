#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord historyRecord;
extern const CommandRecord rollbackRecord;

/// Adds an entry for a command whose notes say that it changed something. `text`: what it was given. Says in
/// the reply what keeps the entry from being written. Lets go of the command lock.
void add_to_history(const Request &request, const char *command, const std::string &text, int result,
                    std::FILE *out);

} // namespace qvcd

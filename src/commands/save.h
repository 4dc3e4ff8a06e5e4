#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord saveRecord;

/// Writes the modified APIs among the named ones, or all, to their files, and lowers "mod" of those whose
/// value is there. Returns 1 when a name is unknown or a value is not in its file. Without a stream nothing
/// is printed. Lets go of the command lock.
int command_save(Request &request, Args &argv, std::FILE *out);

/// False after a save of the API that failed when its files had changed: they may have the value, and may
/// lose it when the power fails.
bool is_on_disk(const std::string &api);

} // namespace qvcd

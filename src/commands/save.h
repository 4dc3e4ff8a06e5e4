#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord saveRecord;

/// Writes the modified APIs among the named ones, or all, to their files: each file in one durable step,
/// however many APIs share it. Without a stream nothing is printed.
int command_save(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

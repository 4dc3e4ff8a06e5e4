#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord exportRecord;

/// Writes settings as an HDF document with URL-encoded values. Arguments: the file (a path of the appliance;
/// "stdout", also without an argument, is the reply stream), the mode 0 to 3, names of APIs and groups (none:
/// all). May let go of the command lock. Returns 1, after an error line, when the file could not be written;
/// it is then as it was. Unknown names give a line only.
int command_export(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord importRecord;

/// Sets every API of an HDF document with URL-encoded values. Arguments: the file (a path of the appliance,
/// "/tmp/user_settings.hdf" without one) and the mode: 0 set, 1 sets, 2 seta, 3 without flags. The document
/// is checked first (store/hdf_file.h, hdf_read_foreign_file). Returns 1, after an error line and with
/// nothing set, when the file is missing, unreadable or empty. May let go of the command lock.
int command_import(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

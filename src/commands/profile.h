#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord profileRecord;

/// Lists, reads, loads, saves, copies and removes profiles (store/profile_files.h); hands on the
/// sub-command's result. Names are taken as they stand in the line, not decoded; one that no file can have is
/// refused.
int command_profile(Request &request, Args &argv, std::FILE *out);

/// Loads and saves the profile that "System.Configuration.Profiles.current" names; the selection itself keeps
/// its value. 0; 1 when that profile has no file. Lets go of the command lock.
int load_profile(Request &request);

} // namespace qvcd

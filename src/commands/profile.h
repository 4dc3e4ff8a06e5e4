#pragma once

#include "commands/command.h"
#include "commands/snapshot.h"

namespace qvcd {

extern const CommandRecord profileRecord;

/// Lists, reads, loads, saves, copies and removes profiles (store/profile_files.h); hands on the
/// sub-command's result. Names are taken as they stand in the line; where no profile has that one, those that
/// it is decoded. One that no file can have is refused.
int command_profile(Request &request, Args &argv, std::FILE *out);

/// The name of a profile that there is, as it stands in the line or, as names with blanks arrive, decoded;
/// else the word.
std::string known_profile(std::string word);

/// Writes a profile and enters it in the list. 1, after an error line, when there is nothing in it, its group
/// has no room, or it cannot be written, all with the old file as it was, or cannot be flushed. `again`: a
/// member of the group that is replaced and so takes no further room.
int store_profile(const std::string &name, const Settings &settings, const std::string &again,
                  std::FILE *out);

/// Loads and saves the profile that "System.Configuration.Profiles.current" names; the selection itself keeps
/// its value. 0; 1 when that profile cannot be read or saved. Lets go of the command lock.
int load_profile(Request &request);

} // namespace qvcd

#pragma once

#include "base/args.h"
#include "commands/set.h"

#include <optional>
#include <string>

namespace qvcd {

/// Loads a profile: the one way for the command, the start, and the APIs that select profiles. The file is
/// read and checked first; then all unsaved changes are dropped and the profile's settings are set, those
/// that `request` may write, with the flags of `mode` (an API that says which profile is selected becomes
/// modified at most). Keeps the selection of the unit and `selected_by`, the API on whose behalf it loads, as
/// they are, flags included. Lets go of the command lock. The names of what the profile holds; nothing, and
/// nothing changed, when the file is missing, no good or empty, which is logged.
std::optional<Args> switch_to_profile(Request &request, const std::string &name,
                                      const std::string &selected_by, SetMode mode, std::FILE *out);

/// What applying an API that selects a profile does: it loads the one that the API's value names. The unit's
/// profile is saved, too; one of a group is applied, and but for the group's description left to be saved.
/// Prints nothing. 0; 1 when it could not be loaded or saved. Lets go of the command lock.
int load_selected_profile(Request &request, const std::string &api);

} // namespace qvcd

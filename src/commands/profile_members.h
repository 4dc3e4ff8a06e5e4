#pragma once

#include "base/request.h"

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// The functions of the APIs that select a profile. A profile group is a pair of APIs "<prefix>.name" and
// "<prefix>.desc".

/// Read as the value when the settings are not those of the selected profile.
inline constexpr char PROFILE_CUSTOM[] = "custom";

/// Stores the settings that the API's "add" attribute names as a profile, and selects it; `text` becomes its
/// description and, shortened, its name. A profile of that name is replaced when it belongs to the group.
/// Contract: funcs/add_remove_map.h. 0; 1, after an error line, when it cannot be stored: the profiles and
/// the selection are then as before. Where the disk takes neither the new state nor the old one, a profile
/// that is in its file stays, and the selection is as before but modified. Lets go of the command lock.
int profile_addfunc(Request &request, std::string_view file, std::string_view api, std::string_view text,
                    std::FILE *out);

/// Removes a profile of the group; the selected one leaves an empty selection. 0; 1, after an error line,
/// when it is there and cannot be removed: the selection is then as before, or modified. Lets go of the
/// command lock.
int profile_removefunc(Request &request, std::string_view file, std::string_view api,
                       std::string_view profile, std::FILE *out);

/// The profile in force: the selection as it is stored; PROFILE_CUSTOM when there is none, when its file is
/// no good, and when a load would change a setting. Contract: funcs/read_map.h.
std::optional<std::string> profile_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

#pragma once

#include "base/request.h"

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// The functions of the APIs that select a profile. A profile group is a pair of APIs "<prefix>.name" and
// "<prefix>.desc", whose values are kept in quoted key/value files (base/kv_file.h).

/// Read as the value when the settings do not match the selected profile.
inline constexpr char PROFILE_CUSTOM[] = "custom";

/// Stores the settings that the API's "add" attribute names as a profile, and selects it; `text` becomes its
/// description and, shortened, its name. Contract: funcs/add_remove_map.h. 0, or 1 when it cannot be stored:
/// the selection is then as before. Prints nothing.
int profile_addfunc(Request &request, std::string_view file, std::string_view api, std::string_view text,
                    std::FILE *out);

/// Removes a profile; the selected one leaves an empty selection. Returns 0.
int profile_removefunc(Request &request, std::string_view file, std::string_view api,
                       std::string_view profile, std::FILE *out);

/// The profile in force: the selection as it is stored, or PROFILE_CUSTOM. Contract: funcs/read_map.h.
std::optional<std::string> profile_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

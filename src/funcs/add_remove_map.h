#pragma once

#include "base/request.h"

#include <cstdio>
#include <string_view>
#include <vector>

namespace qvcd {

/// Adds a member to a collection, or removes one: the request, the API's "file", its name, the member, the
/// reply stream.
using MemberFunction = int (*)(Request &request, std::string_view file, std::string_view api,
                               std::string_view value, std::FILE *out);

std::vector<std::string_view> add_functions();    ///< the names of all
std::vector<std::string_view> remove_functions(); ///< the same

int cmd_create_addfuncmap_hdf();
int cmd_create_removefuncmap_hdf();

int addfuncmap_add(Request &request, std::string_view file, std::string_view api, std::string_view value,
                   std::FILE *out);
int removefuncmap_remove(Request &request, std::string_view file, std::string_view api,
                         std::string_view value, std::FILE *out);

/// Fill the profile rows: the profile commands lie above these maps.
void addfuncmap_set_profile(MemberFunction add);
void removefuncmap_set_profile(MemberFunction remove);

} // namespace qvcd

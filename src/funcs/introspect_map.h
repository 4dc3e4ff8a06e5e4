#pragma once

#include <cstdio>
#include <string_view>

namespace qvcd {

int cmd_create_ifuncmap_hdf();
int cmd_destroy_ifuncmap_hdf();

/// Describes the values that an API takes; `compact` gives the same facts in one short line. Returns 1,
/// writing nothing, when the API has neither an "introspect" nor a "type" text. May let go of the command
/// lock.
int ifuncmap_introspect(std::string_view prefix, std::string_view api, bool compact, std::FILE *out);

} // namespace qvcd

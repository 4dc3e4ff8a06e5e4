#pragma once

#include "base/request.h"

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

std::vector<std::string_view> described_types(); ///< the names that have a description of their own

int cmd_create_ifuncmap_hdf(); ///< logs the map's size; 0

/// Describes an API: its type, default and value, one line each, then values that it takes: lines whose keys
/// are the prefix and the name, or, with `compact`, one short text after the prefix. Default, value and
/// counters only for a caller who may see them, a password as stars. No value is offered that
/// cfuncmap_check() refuses. Returns 1, writing nothing, when the API has neither an "introspect" nor a
/// "type" text. A value that was `read` just before is not read again; without it, may let go of the command
/// lock.
int ifuncmap_introspect(Request &request, std::string_view prefix, std::string_view api, bool compact,
                        std::FILE *out, const std::optional<std::string> &read = {});

} // namespace qvcd

#pragma once

#include "store/api.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

int cmd_create_cfuncmap_hdf(); ///< logs the map's size; 0

/// One alternative of a type: its name (which may be empty), then at most 50 arguments; what follows is
/// ignored.
using TypeWords = std::vector<std::string>;

/// The alternatives of a type's text, between commas: at least one.
std::vector<TypeWords> parse_type(std::string_view type);

/// Checks a value against the API's "type". Nothing when it is acceptable (or the API has no type), else the
/// error line "<error text>: <value>", at most kMaxErrorLineBytes, with a blank in place of each control
/// character. Used under the command lock.
std::optional<std::string> cfuncmap_check(Api &api, std::string_view value);
std::optional<std::string> cfuncmap_check(std::string_view api, std::string_view value);

} // namespace qvcd

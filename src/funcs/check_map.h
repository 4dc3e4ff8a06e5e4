#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

int cmd_create_cfuncmap_hdf(); ///< logs the map's size; 0

/// Checks a value against the API's "type". Nothing when it is acceptable (or the API has no type), else the
/// error line "<error text>: <value>", at most kMaxErrorLineBytes.
std::optional<std::string> cfuncmap_check(std::string_view api, std::string_view value);

} // namespace qvcd

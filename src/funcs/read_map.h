#pragma once

#include "base/request.h"

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

/// A read function gets the request, which keeps what was read for it already, and the API's "file" and
/// "attr" attributes (null when absent). Nothing: there is no value.
using ReadFunction = std::optional<std::string> (*)(Request &request, const char *file, const char *attr);

int cmd_create_rfuncmap_hdf(); ///< logs the map's size; 0

/// Reads the live value of an API through the function that its "read" attribute names: at most
/// kMaxValueBytes, with a blank in place of each control character. May let go of the command lock.
std::optional<std::string> rfuncmap_read(Request &request, std::string_view api);

/// Fills the row "profile_rfunc": the profile commands lie above this map.
void rfuncmap_set_profile_reader(ReadFunction reader);

} // namespace qvcd

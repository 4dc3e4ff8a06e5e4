#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace qvcd::client {

/// The value as a boolean or a number, where a setting of this type holds one; else as a text.
nlohmann::ordered_json typed_value(std::string_view type, const std::string &value);

} // namespace qvcd::client

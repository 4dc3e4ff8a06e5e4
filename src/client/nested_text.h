#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qvcd::client {

/// The nested text of `sessions`, `menu` and the like ("NAME {", "NAME = VALUE", "}") as objects in objects,
/// all values as texts. Nothing for lines that are something else, or are no whole text.
std::optional<nlohmann::ordered_json> parse_nested(const std::vector<std::string> &lines);

} // namespace qvcd::client

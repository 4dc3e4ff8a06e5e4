#pragma once

#include "check/finding.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qvcd {

/// What is wrong with the text of a type. With `is_source` arguments behind a type that takes none name the
/// sources of counters ("introspect = quality").
std::vector<std::pair<Kind, std::string>> type_mistakes(std::string_view type, bool is_source);

/// One of the alternatives takes numbers, and numbers only.
bool has_numbers(std::string_view type);

/// Why a type refuses a value; none: it takes it, or nobody can tell (unknown types, names of profiles).
std::optional<std::string> type_refusal(std::string_view type, std::string_view api, std::string_view value);

} // namespace qvcd

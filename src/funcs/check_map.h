#pragma once

#include "funcs/check_functions.h"
#include "store/api.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

int cmd_create_cfuncmap_hdf(); ///< logs the map's size; 0

/// What stands behind a type's name.
enum class TypeArguments {
    none,
    members, ///< one at least
    bounds,  ///< two whole numbers
    lengths, ///< none, or two whole numbers
    reals,   ///< two numbers
    words,   ///< one at least, of any kind
    limit,   ///< none, or a whole number above 0
    family,  ///< none, or 4 or 6
};

enum class Takes { text, numbers };

struct CheckRow {
    std::string_view name;
    CheckFunction *check;
    TypeArguments arguments = TypeArguments::none;
    Takes takes = Takes::text;
};
std::span<const CheckRow> type_rows(); ///< all types; the first one stands for those that are missing

inline constexpr std::size_t kMaxTypeArgs = 50;

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

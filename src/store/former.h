#pragma once

#include "store/tree.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// What an API was before: one part of its "was", "NAME [KEY [FILE]]".
struct Former {
    std::string name;
    std::string attr; ///< where its value was kept; empty: where it is now
    std::string file;
};

/// The parts of a "was", between commas. Words behind the third are ignored.
std::vector<Former> parse_former(std::string_view was);

/// Gives the values of a document that stand under a name that an API had the name that it has now. A value
/// that stands there already stays, and the former one goes. Of the APIs that claim one name, the first one
/// has it. Used under the command lock.
void rename_former(Tree &document);

/// The value of an API in what may be older than the metadata: under its name, else under one that it had.
std::optional<std::string_view> get_by_any_name(Node document, const std::string &api);

} // namespace qvcd

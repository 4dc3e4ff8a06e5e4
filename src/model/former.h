#pragma once

#include <map>
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

/// The APIs of now by the names that they say they had. Of those that claim one name, the first one has it.
/// Used under the command lock.
std::map<std::string, std::string> names_by_former();

} // namespace qvcd

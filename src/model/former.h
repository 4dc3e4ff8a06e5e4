#pragma once

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

/// The name that an API has now: `name`, unless there is no such API and another one says that it was that.
/// The first one that does counts. Used under the command lock.
std::string current_name(const std::string &name);

} // namespace qvcd

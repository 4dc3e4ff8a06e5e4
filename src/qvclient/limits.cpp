#include "qvclient/limits.h"

#include <algorithm>

namespace qvcd::client {

namespace {

constexpr std::chrono::seconds kTimeout{30};
constexpr std::chrono::minutes kSlowTimeout{10};

// They run scripts one after the other, of which each has minutes.
bool waits_for_scripts(std::string_view command)
{
    static constexpr std::string_view kCommands[] = {"commit", "rollback", "abort",  "apply",
                                                     "update", "preset",   "profile"};
    return std::ranges::count(kCommands, command.substr(0, command.find('.'))) != 0;
}

} // namespace

TimeLimits usual_limits(std::string_view command)
{
    return {.connect = kTimeout, .whole = waits_for_scripts(command) ? kSlowTimeout : kTimeout};
}

} // namespace qvcd::client

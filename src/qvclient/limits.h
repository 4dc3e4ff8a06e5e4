#pragma once

#include <chrono>
#include <string_view>

namespace qvcd::client {

/// How long a request may take.
struct TimeLimits {
    std::chrono::milliseconds connect; ///< until there is a connection
    std::chrono::milliseconds whole;   ///< until the end of the reply
};

inline constexpr std::chrono::seconds kLongestLimit{86400};

/// What suits the command: more for those that wait for the scripts of the appliance.
TimeLimits usual_limits(std::string_view command);

} // namespace qvcd::client

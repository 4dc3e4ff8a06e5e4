#pragma once

#include "store/database.h"

#include <optional>
#include <string_view>

namespace qvcd {

inline constexpr int kMaxPort = 65535;

/// The TCP or UDP port that a setting names: `fallback` when it is absent or no number, nothing when the
/// number is none of 1 to 65535.
inline std::optional<int> setting_port(std::string_view name, int fallback)
{
    const long long port = hdfDB.get_int(name, 0);
    if (port != hdfDB.get_int(name, 1))
        return fallback;
    return port >= 1 && port <= kMaxPort ? std::optional(static_cast<int>(port)) : std::nullopt;
}

} // namespace qvcd

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvcd {

// Longer texts are cut, longer paths are refused.
inline constexpr std::size_t kMaxValueBytes = 1023;
inline constexpr std::size_t kMaxNameBytes = 1023;
inline constexpr std::size_t kMaxFileLineBytes = 1023; // one piece of a line of a configuration file
inline constexpr std::size_t kMaxPathBytes = 4095;
inline constexpr std::size_t kMaxErrorLineBytes = 255;
inline constexpr std::size_t kMaxArgs = 99;
inline constexpr std::size_t kMaxLoggedWordBytes = 64; // names that clients make up

inline std::string cut(std::string_view text, std::size_t limit)
{
    return std::string(text.substr(0, limit));
}

} // namespace qvcd

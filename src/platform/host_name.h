#pragma once

#include <array>
#include <string>
#include <unistd.h>

namespace qvcd {

/// The machine's name as it is now; "localhost" without one.
inline std::string host_name()
{
    std::array<char, 256> name{};
    const bool named = ::gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0';
    return named ? name.data() : "localhost";
}

} // namespace qvcd

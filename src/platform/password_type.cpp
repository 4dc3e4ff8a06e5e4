#include "platform/password_type.h"

#include <algorithm>

namespace qvcd {

bool is_password_type(std::string_view type)
{
    constexpr std::string_view kBlanks = " \t\r\n";
    while (!type.empty()) {
        const std::size_t end = std::min(type.find(','), type.size());
        std::string_view one = type.substr(0, end);
        one.remove_prefix(std::min(one.find_first_not_of(kBlanks), one.size()));
        if (one.substr(0, one.find_first_of(kBlanks)).find("password") != std::string_view::npos)
            return true;
        type.remove_prefix(std::min(end + 1, type.size()));
    }
    return false;
}

} // namespace qvcd

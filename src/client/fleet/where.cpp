#include "client/fleet/where.h"

#include <algorithm>
#include <fnmatch.h>

#include "client/errors.h"

namespace qvcd::client::fleet {

Where::Where(const std::optional<std::string> &text)
{
    std::string_view rest = text ? *text : std::string_view();
    while (!rest.empty()) {
        const std::string_view one = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(one.size() + 1, rest.size()));
        const std::size_t equals = one.find('=');
        if (equals == std::string_view::npos || equals == 0)
            throw UsageError("'" + std::string(one) +
                             "' is no filter: expected FACT=PATTERN, as label=Studio*");
        patterns_.emplace_back(one.substr(0, equals), one.substr(equals + 1));
    }
}

bool Where::fits(const std::string &id, const Member &member) const
{
    return std::ranges::all_of(patterns_, [&](const auto &one) {
        const std::string value = one.first == "id" ? id : member.fact(one.first);
        const bool is_there = one.first == "id" || one.first == "online" || member.status.contains(one.first);
        return (is_there || one.second.empty()) && fnmatch(one.second.c_str(), value.c_str(), 0) == 0;
    });
}

std::vector<std::string> Where::all(const Fleet &fleet) const
{
    std::vector<std::string> ids;
    for (const auto &[id, member] : fleet.members()) {
        if (fits(id, member))
            ids.push_back(id);
    }
    return ids;
}

std::vector<std::string> Where::online(const Fleet &fleet) const
{
    std::vector<std::string> ids = all(fleet);
    std::erase_if(ids, [&](const std::string &id) { return !fleet.members().at(id).is_online(); });
    return ids;
}

} // namespace qvcd::client::fleet

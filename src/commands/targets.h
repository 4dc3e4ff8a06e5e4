#pragma once

#include "base/args.h"
#include "base/reply.h"
#include "platform/api_errors.h"
#include "store/database.h"

#include <string>

namespace qvcd {

/// Runs over what one argument of a command names in the settings tree: `group(name)` for a group,
/// `api(name)`, which gives 0 or not, for an API; an unknown name gets its not-found line. Returns 0, or 1
/// when the name was unknown or the API's result was not 0. Templates: this is the way of every get.
template <class Group, class Api>
int visit_setting(const std::string &name, std::FILE *out, const Group &group, const Api &api)
{
    const Node node = name.empty() ? Node() : hdfDB.find(name);
    if (!node) {
        reply_value(out, name, API_E_PARAM_NOT_FOUND);
        return 1;
    }
    if (!node.first_child())
        return api(name) == 0 ? 0 : 1;
    group(name);
    return 0;
}

/// The same for all arguments; without any, `group` is called with the empty name, the root. Returns 1 when
/// one of them gave 1.
template <class Group, class Api>
int for_each_setting(const Args &names, std::FILE *out, const Group &group, const Api &api)
{
    int result = 0;
    for (const std::string &name : names)
        result |= visit_setting(name, out, group, api);
    if (names.empty())
        group("");
    return result;
}

} // namespace qvcd

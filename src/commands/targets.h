#pragma once

#include "base/args.h"
#include "base/command_lock.h"
#include "base/reply.h"
#include "platform/api_errors.h"
#include "store/api.h"
#include "store/database.h"
#include "store/flags.h"
#include "store/names.h"

#include <functional>
#include <string>

namespace qvcd {

// What the arguments of a command name (store/names.h). An unknown name gets its not-found line.

/// "name=error"; 1.
inline int refuse(const std::string &name, std::string_view error, std::FILE *out)
{
    reply_value(out, name, error);
    return 1;
}

/// Runs over what one argument names in the settings: `group(name)` for a group, `api(Api &)`, which gives 0
/// or not, for an API. Returns 0, or 1 when the name was unknown or the API's result was not 0. Templates:
/// this is the way of every get.
template <class Group, class Visit>
int visit_setting(const std::string &name, std::FILE *out, const Group &group, const Visit &visit)
{
    if (Api *api = find_api(name))
        return visit(*api) == 0 ? 0 : 1;
    if (name_kind(name) != NameKind::group)
        return refuse(name, API_E_PARAM_NOT_FOUND, out);
    group(name);
    return 0;
}

/// The same for all arguments; without any, `group` is called with the empty name, the root. Returns 1 when
/// one of them gave 1.
template <class Group, class Visit>
int for_each_setting(const Args &names, std::FILE *out, const Group &group, const Visit &visit)
{
    int result = 0;
    for (const std::string &name : names) {
        result |= visit_setting(name, out, group, visit);
        send_long_reply();
    }
    if (names.empty())
        group("");
    return result;
}

/// The same where nothing is done for a group but to visit its APIs, whose results do not count.
template <class Visit>
int for_each_setting(const Args &names, std::FILE *out, const Visit &visit)
{
    const auto group = [&](const std::string &name) { visit_apis(name, [&](Api &api) { visit(api); }); };
    return for_each_setting(names, out, group, visit);
}

/// Visits the APIs at and below the names (without any: all of them) whose flag is raised, by name, since a
/// visit may let go of the command lock. Returns 1 when a name was unknown, or when the visit of the very API
/// that was named gave not 0; of APIs below a group it does not count.
int for_each_flagged(const Args &names, std::FILE *out, Classifier flag,
                     const std::function<int(Api &api)> &visit);

} // namespace qvcd

#include "commands/pending.h"

#include "auth/session.h"
#include "base/text.h"
#include "change/commit.h"
#include "change/report.h"
#include "commands/targets.h"

#include <nlohmann/json.hpp>

namespace qvcd {

namespace {

using Json = nlohmann::ordered_json;

// What is not known is null.
Json shown(const Api &api, const std::optional<std::string> &value)
{
    return value ? Json(api.shown(*value)) : Json();
}

std::string user_of(const std::string &session)
{
    return session == kNobody ? "" : session_get_user(c_int(session)).value_or("");
}

Json pending_change(const Request &request, Api &api)
{
    const Pending pending = pending_of(api.name());
    Json change = {{"name", api.name()},
                   {"own", pending.session == request.caller.session},
                   {"user", user_of(pending.session)},
                   {"value", api.shown(api.value())}};
    if (api.is_raised(Api::Flag::mod))
        change["saved"] = shown(api, pending.saved);
    if (api.is_raised(Api::Flag::noapp))
        change["applied"] = shown(api, pending.applied);
    return change;
}

int command_pending(Request &request, Args &argv, std::FILE *out)
{
    Json changes = Json::array();
    const int result = for_each_flagged(argv, out, flag_modified_or_unapplied, [&](Api &api) {
        if (api.visible_to(request.mask))
            changes.push_back(pending_change(request, api));
        return 0;
    });
    reply_json(out, changes);
    return result;
}

} // namespace

const CommandRecord pendingRecord = {
    .name = "pending",
    .handler = command_pending,
    .summary = "List changes that are not saved or not applied",
    .synopsis = "pending [<API or group> ...]",
    .return_values = "One line of JSON, an array.",
    .errors = "<name>=##Parameter not found#: there is no such API or group. The others are listed, and the "
              "result is 1.",
    .description =
        "Lists the APIs that were set and are not saved or not applied, of those that the caller may read: "
        "name, own (the caller's session set it last), user (who did), value, saved (while it is not saved: "
        "the "
        "value of its file) and applied (while it is not applied: the value that is in force); null is not "
        "known.",
};

} // namespace qvcd

#include "change/actions.h"

#include "base/failures.h"
#include "base/limits.h"
#include "base/shell.h"
#include "base/text.h"
#include "funcs/apply_map.h"
#include "platform/log.h"
#include "store/meta.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr std::size_t kMaxNames = 10; // that are kept of one action

std::vector<std::string> calls_of(const std::string &api)
{
    std::vector<std::string> calls;
    for (const auto &text : {meta_get_this_level(api, "apply2"), meta_get(api, "apply")}) {
        for (const std::string &part : split_words(cut(text.value_or(""), kMaxValueBytes), ",")) {
            const std::size_t start = part.find_first_not_of("= \t:");
            if (start == std::string::npos)
                continue;
            const std::string call = part.substr(start);
            calls.push_back(call.substr(0, call.find('\n')));
        }
    }
    return calls;
}

} // namespace

bool Actions::take(const std::string &call, const std::string &api)
{
    auto known = std::ranges::find(actions_, call, &Action::call);
    const auto index = static_cast<std::size_t>(known - actions_.begin());
    if (known != actions_.end()) {
        qv_log_print(kLogDebug, "  already in cache %zu [%s]\n", index, call.c_str());
    } else {
        if (index == most_)
            return false;
        qv_log_print(kLogDebug, "  add to cache %zu [%s]\n", index, call.c_str());
        known = actions_.insert(actions_.end(), {call, {}});
    }
    if (known->apis.size() < kMaxNames)
        known->apis.push_back(api);
    return true;
}

Actions::Added Actions::add(const std::string &api)
{
    Added added = Added::nothing;
    for (const std::string &call : calls_of(api)) {
        if (take(call, api))
            added = Added::taken;
        else if (added == Added::nothing)
            added = Added::no_room;
    }
    return added;
}

bool runs_later(const Actions::Action &action)
{
    return afuncmap_without_delay(action.call).has_value();
}

ActionRun run_action(Request &request, const Actions::Action &action, Delay delay)
{
    const auto call = delay == Delay::none ? afuncmap_without_delay(action.call) : std::nullopt;
    ActionRun run{action.call};
    const ShellErrors errors;
    afuncmap_apply_direct(request, "apply", action.apis.front(), call.value_or(action.call), run.status);
    if (run.status != 0)
        return note_failure(action.apis, run.action, run.status, errors.text());
    for (const std::string &api : action.apis)
        qv_log_print(kLogDebug, "  with %s\n", api.c_str());
    return run;
}

} // namespace qvcd

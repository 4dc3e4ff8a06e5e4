#include "change/actions.h"

#include "base/limits.h"
#include "base/text.h"
#include "funcs/apply_map.h"
#include "platform/log.h"
#include "store/meta.h"

#include <algorithm>
#include <sys/wait.h>

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
    if (known == actions_.end()) {
        if (actions_.size() == most_)
            return false;
        qv_log_print(kLogDebug, "  action %zu [%s]\n", actions_.size(), call.c_str());
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

int run_action(Request &request, const Actions::Action &action, Delay delay)
{
    const auto call = delay == Delay::none ? afuncmap_without_delay(action.call) : std::nullopt;
    int status = 0;
    afuncmap_apply_direct(request, "apply", action.apis.front(), call.value_or(action.call), status);
    if (status != 0) {
        qv_log_print(kLogWarning, "Can not apply %s\n", action.apis.front().c_str());
        qv_log_print(kLogWarning, "  %s: %s\n", action.call.c_str(), status_text(status).c_str());
    }
    for (const std::string &api : action.apis)
        qv_log_print(kLogDebug, "  with %s\n", api.c_str());
    return status;
}

std::string status_text(int status)
{
    constexpr int kNotRun = 1; // what shell_run() returns for a command that could not be started
    if (status > kNotRun && WIFEXITED(status))
        return "exit status " + std::to_string(WEXITSTATUS(status));
    if (status > kNotRun && WIFSIGNALED(status))
        return "ended by signal " + std::to_string(WTERMSIG(status));
    return "failed";
}

} // namespace qvcd

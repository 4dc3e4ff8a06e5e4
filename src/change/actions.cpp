#include "change/actions.h"

#include "base/limits.h"
#include "base/shell.h"
#include "base/text.h"
#include "change/failures.h"
#include "funcs/apply_map.h"
#include "platform/log.h"
#include "store/meta.h"

#include <algorithm>
#include <ctime>
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

std::vector<std::string> first_lines(const std::string &text)
{
    constexpr std::size_t kMostLines = 5;
    std::vector<std::string> lines;
    for (const std::string &line : split_words(text, "\r\n")) {
        if (lines.size() < kMostLines)
            lines.push_back(one_line(cut(line, kMaxErrorLineBytes)));
    }
    return lines;
}

void log_failure(const Actions::Action &action, const ActionRun &run)
{
    qv_log_print(kLogWarning, "Can not apply %s\n", action.apis.front().c_str());
    qv_log_print(kLogError, "  %s: %s\n", run.action.c_str(), status_text(run.status).c_str());
    for (const std::string &line : run.errors)
        qv_log_print(kLogError, "    %s\n", line.c_str());
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

ActionRun run_action(Request &request, const Actions::Action &action, Delay delay)
{
    const auto call = delay == Delay::none ? afuncmap_without_delay(action.call) : std::nullopt;
    ActionRun run{action.call};
    const ShellErrors errors;
    afuncmap_apply_direct(request, "apply", action.apis.front(), call.value_or(action.call), run.status);
    if (run.status != 0) {
        run.errors = first_lines(errors.text());
        log_failure(action, run);
        failure_note({.time = std::time(nullptr), .apis = action.apis, .run = run});
    }
    for (const std::string &api : action.apis)
        qv_log_print(kLogDebug, "  with %s\n", api.c_str());
    return run;
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

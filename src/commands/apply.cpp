#include "commands/apply.h"

#include "base/command_lock.h"
#include "base/reply.h"
#include "change/actions.h"
#include "commands/targets.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/api_event.h"

#include <unistd.h>

namespace qvcd {

namespace {

constexpr std::size_t kMaxActions = 9; // of one apply; the APIs of further ones wait for the next

// Gathers the actions of one API; 1 when the caller may not apply it.
int apply_param(const Request &request, const Api &api, Actions &actions, std::FILE *out)
{
    if (!api.applicable_by(request.mask))
        return 1;
    const std::string &name = api.name();
    if (name.find("__d") != std::string::npos)
        return 0;
    const Actions::Added added = actions.add(name);
    if (added == Actions::Added::nothing)
        return 0;
    const std::string old = pending_of(name).applied.value_or(std::string(api.value()));
    if (added == Actions::Added::taken) {
        note_change(request, name, old, api.value(), api.is_secret());
        flag_applied(name);
    }
    reply_value(out, name, api.shown(api.value()));
    qv_log_print(kLogNotice, "Apply %s=%s\n", name.c_str(), api.for_log(api.value()).c_str());
    publish_api("apply", api, api.value(), old);
    return 0;
}

void flush_file_systems()
{
    const Unlocked unlocked;
    sync();
}

} // namespace

int command_apply(Request &request, Args &argv, std::FILE *out)
{
    Actions actions(kMaxActions);
    const int result = for_each_flagged(argv, out, flag_apply_pending, [&](const Api &api) {
        return apply_param(request, api, actions, out);
    });
    if (actions.all().empty())
        return result;
    for (const Actions::Action &action : actions.all()) {
        const ActionRun run = run_action(request, action);
        if (request.notes)
            request.notes->ran(run);
        if (run.status != 0)
            reply_value(out, action.apis.front(), API_E_APPLY_FAILED);
    }
    flush_file_systems();
    return result;
}

const CommandRecord applyRecord = {
    .name = "apply",
    .handler = command_apply,
    .summary = "Apply a parameter or group",
    .errors = "##Apply failed#",
    .recorded = ChangeNotes::Level::lasting,
};

} // namespace qvcd

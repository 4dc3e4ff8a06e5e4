#include "commands/failures.h"

#include "base/reply.h"
#include "change/report.h"
#include "commands/option_words.h"
#include "platform/api_errors.h"
#include "store/api.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace qvcd {

namespace {

using Json = nlohmann::ordered_json;

// `name`: of an API, or of a group around it.
bool is_below(const std::string &api, const std::string &name)
{
    return api == name || api.starts_with(name + ".");
}

bool is_wanted(const Failure &failure, const Args &names)
{
    return names.empty() || std::ranges::any_of(failure.apis, [&](const std::string &api) {
               return std::ranges::any_of(names,
                                          [&](const std::string &name) { return is_below(api, name); });
           });
}

int command_failures(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "j", "");
    if (!options.good()) {
        reply_line(out, API_E_INVALID_CMD_ARGS);
        return 1;
    }
    Json json = {{"failures", Json::array()}};
    for (const Failure &failure : failures()) {
        if (!is_wanted(failure, argv) || !may_see(request, failure))
            continue;
        if (options.has('j')) {
            json["failures"].push_back({{"time", time_text(failure.time)},
                                        {"names", failure.apis},
                                        {"action", failure.run.action},
                                        {"status", failure.run.status},
                                        {"output", failure.run.errors}});
        } else {
            print_run(time_text(failure.time) + " " + failure.apis.front() + ": ", failure.run, out);
        }
    }
    if (options.has('j'))
        reply_json(out, json);
    return 0;
}

} // namespace

bool may_see(const Request &request, const Failure &failure)
{
    return std::ranges::any_of(failure.apis, [&](const std::string &name) {
        const Api *api = find_api(name);
        return api && api->applicable_by(request.mask) && !api->is_hidden_from(request.mask);
    });
}

std::string line_of(const Failure &failure)
{
    return time_text(failure.time) + " " + failure.apis.front() + ": " + line_of(failure.run);
}

const CommandRecord failuresRecord = {
    .name = "failures",
    .handler = command_failures,
    .summary = "Show which actions failed",
    .synopsis = "failures [-j] [<API or group> ...]",
    .description =
        "Lists the newest 50 actions that failed since the daemon was started, the oldest first: time "
        "(UTC), the first API that asked for it, the action and how it failed; then the first lines of "
        "what it said on standard error, each behind four blanks. With names only actions of these "
        "APIs, or of some below these groups. Only who may apply an API sees its actions. -j gives one "
        "line of JSON.",
};

} // namespace qvcd

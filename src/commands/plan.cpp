#include "commands/plan.h"

#include "change/plan.h"
#include "commands/option_words.h"
#include "commands/targets.h"
#include "funcs/read_map.h"
#include "store/database.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr char kUnknown[] = "(unknown)";

int command_plan(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "ja", "");
    if (!options.good()) {
        reply_line(out, API_E_INVALID_CMD_ARGS);
        return 1;
    }
    refresh_live_values(request, argv);
    const Whose whose = options.has('a') ? Whose::everybodys : Whose::own;
    const Report report =
        plan(request, argv.empty() ? propose_pending(request, whose) : propose(request, argv));
    report.print(options.has('j'), out);
    return report.errors.empty() ? 0 : 1;
}

// ---- diff ----

void add(const Request &request, const Api &api, const std::optional<std::string> &before, Report &report)
{
    if (!api.visible_to(request.mask) || before == api.value())
        return;
    const auto shown = [&](std::string_view value) { return std::string(api.shown(value)); };
    report.values.push_back(
        {api.name(), before ? shown(*before) : kUnknown, shown(api.value()), api.is_secret()});
}

void diff_saved(Request &request, const Args &names, Report &report)
{
    for_each_flagged(names, nullptr, flag_modified, [&](const Api &api) {
        const std::string name = api.name();
        const std::optional<std::string> stored = rfuncmap_read(request, name);
        if (const Api *read = find_api(name)) // it may have been deleted while the reader waited
            add(request, *read, stored, report);
        return 0;
    });
}

void diff_default(Request &request, const Args &names, Report &report)
{
    for_each_setting(names, nullptr, [&](const Api &api) {
        if (const auto fallback = api.fallback(); fallback && api.name().find("__") == std::string::npos)
            add(request, api, std::string(*fallback), report);
        return 0;
    });
}

void diff_running(Request &request, const Args &names, Report &report)
{
    for_each_flagged(names, nullptr, flag_apply_pending, [&](const Api &api) {
        add(request, api, pending_of(api.name()).applied, report);
        return 0;
    });
}

struct Side {
    const char *name;
    void (*compare)(Request &request, const Args &names, Report &report);
};
constexpr Side kSides[] = {{"saved", diff_saved}, {"default", diff_default}, {"running", diff_running}};

const Side &take_side(Args &argv)
{
    const auto *side = argv.empty() ? std::end(kSides) : std::ranges::find(kSides, argv.front(), &Side::name);
    if (side == std::end(kSides))
        return kSides[0];
    argv.erase(argv.begin());
    return *side;
}

int command_diff(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "j", "");
    if (!options.good()) {
        reply_line(out, API_E_INVALID_CMD_ARGS);
        return 1;
    }
    const Side &side = take_side(argv);
    const bool everything = argv.empty();
    Report report;
    std::erase_if(argv, [&](const std::string &name) {
        const bool unknown = name_kind(name) == NameKind::nothing;
        if (unknown)
            report.errors.push_back({name, API_E_PARAM_NOT_FOUND});
        return unknown;
    });
    if (everything || !argv.empty()) // no name is not all names
        side.compare(request, argv, report);
    report.print(options.has('j'), out);
    return report.errors.empty() ? 0 : 1;
}

} // namespace

const CommandRecord planRecord = {
    .name = "plan",
    .handler = command_plan,
    .summary = "Show what a change would do",
    .synopsis = "plan [-j] [-a] [<API>=<value> ...]",
    .errors = "<name>=<error>: the value would be refused, or could not be written. The result is 1.",
    .description =
        "Shows what the commit command would do, and does nothing: with the values given, or with the "
        "caller's own changes that are not saved or not applied (-a: everybody's). First the values, as "
        "<API>=<old> -> <new>; then how their files would change, as unified diffs, in which passwords are "
        "hidden and lines around a change are shown to administrators only; then the actions, in the order "
        "in "
        "which they would run. -j gives one line of JSON.",
    .assigns = true,
};

const CommandRecord diffRecord = {
    .name = "diff",
    .handler = command_diff,
    .summary = "Show values that differ",
    .synopsis = "diff [-j] [saved|default|running] [<API or group> ...]",
    .errors =
        "<name>=##Parameter not found#: there is no such API or group. The others are compared, and the "
        "result is 1.",
    .description =
        "Lists the values that differ, one line an API, <API>=<old> -> <new>: from what their files hold "
        "(saved, and without a word), from their defaults, or from what was applied (running). Those of the "
        "named APIs and groups, or all. -j gives one line of JSON.",
};

} // namespace qvcd

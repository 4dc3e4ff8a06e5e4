#include "commands/get.h"

#include "base/options.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/targets.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "platform/log.h"
#include "store/database.h"

namespace qvcd {

namespace {

// What is printed for each API; the numbers are those of the commands get, geti, getv, getd, getdv.
enum class GetMode { value, introspection, value_only, fallback, fallback_only };

// What the attributes say of an API, gathered with one search of its node.
struct GetPlan {
    bool refused = false;
    bool hidden = false;
    bool dynamic = false;
    bool password = false;
    std::optional<std::string> fallback; // the own-level default
    std::optional<std::string> link;
};

GetPlan plan_get(const Request &request, std::string_view api, GetMode mode)
{
    MetaApi meta(api);
    GetPlan plan;
    plan.refused = !meta.readable_by(request.mask);
    plan.hidden = plan.refused || !meta.visible_to(request.mask);
    if (plan.hidden)
        return plan;
    plan.dynamic = meta.is_true("dynamic");
    plan.password = meta.is_password();
    if (plan.dynamic || mode == GetMode::fallback || mode == GetMode::fallback_only)
        plan.fallback = own_copy(meta.own("default"));
    if (const auto link = meta.own("link"); link && !plan.dynamic && name_kind(*link) == NameKind::api)
        plan.link = std::string(*link);
    return plan;
}

std::string current_value(Request &request, const std::string &api, const GetPlan &plan)
{
    if (!plan.dynamic)
        return hdfDB.get_or(plan.link.value_or(api), "");
    std::optional<std::string> live = rfuncmap_read(request, api);
    return live ? std::move(*live) : plan.fallback.value_or("");
}

// Values of passwords are not shown, defaults are.
void print_value(Request &request, GetMode mode, const std::string &api, const std::string &value,
                 const GetPlan &plan, std::FILE *out)
{
    const std::string shown = plan.password && value.size() > 1 ? kHiddenPassword : value;
    switch (mode) {
    case GetMode::value:
        reply_value(out, api, shown);
        break;
    case GetMode::introspection:
        reply_value(out, api, shown);
        ifuncmap_introspect(request, "", api, false, out, plan.dynamic ? std::optional(value) : std::nullopt);
        break;
    case GetMode::value_only:
        reply_line(out, shown);
        break;
    case GetMode::fallback:
        if (plan.fallback)
            reply_value(out, api, *plan.fallback);
        break;
    case GetMode::fallback_only:
        if (plan.fallback)
            reply_line(out, *plan.fallback);
        break;
    }
}

// One API; 1 when the caller may not read it.
int print_param_to_out(Request &request, const std::string &api, std::FILE *out, GetMode mode)
{
    const GetPlan plan = plan_get(request, api, mode);
    if (plan.hidden)
        return plan.refused ? 1 : 0;
    print_value(request, mode, api, current_value(request, api, plan), plan, out);
    return 0;
}

// Visits every API below a group, or below the root, and logs what each took.
void visit_group(const std::string &name, const char *what, const LeafVisitor &visit)
{
    const bool timed = timing_is_on() && qv_log_wants(kLogTrace);
    hdfutils_visit_leaves(hdfDB, name, [&](const std::string &api) {
        const Stopwatch watch;
        visit(api);
        if (timed)
            qv_log_print(kLogTrace, "    %s param: [%lu.%03lus] %s\n", what, watch.seconds(),
                         watch.milliseconds(), api.c_str());
    });
}

int do_command_get(Request &request, const Args &argv, std::FILE *out, GetMode mode)
{
    int result = 0;
    const auto api = [&](const std::string &name) { return print_param_to_out(request, name, out, mode); };
    const auto group = [&](const std::string &name) { visit_group(name, "get", api); };
    for (const std::string &name : argv) { // one at a time: each is timed
        const Stopwatch watch;
        result |= visit_setting(name, out, group, api);
        if (timing_is_on())
            qv_log_print(kLogDebug, "  get: [%lu.%03lus] %s\n", watch.seconds(), watch.milliseconds(),
                         name_for_log(name).c_str());
        send_long_reply();
    }
    if (argv.empty()) {
        const Stopwatch watch;
        group("");
        if (timing_is_on())
            qv_log_print(kLogDebug, "  get: [%lu.%03lus]\n", watch.seconds(), watch.milliseconds());
    }
    return result;
}

int command_geti(Request &request, Args &argv, std::FILE *out)
{
    return do_command_get(request, argv, out, GetMode::introspection);
}

int command_getv(Request &request, Args &argv, std::FILE *out)
{
    return do_command_get(request, argv, out, GetMode::value_only);
}

int command_getdv(Request &request, Args &argv, std::FILE *out)
{
    return do_command_get(request, argv, out, GetMode::fallback_only);
}

} // namespace

int command_get(Request &request, Args &argv, std::FILE *out)
{
    return do_command_get(request, argv, out, GetMode::value);
}

int command_getd(Request &request, Args &argv, std::FILE *out)
{
    return do_command_get(request, argv, out, GetMode::fallback);
}

int command_introspect(Request &request, Args &argv, std::FILE *out)
{
    const auto api = [&](const std::string &name) {
        if (!meta_is_hidden(request.mask, name))
            ifuncmap_introspect(request, "", name, false, out);
        return 0;
    };
    const auto group = [&](const std::string &name) { visit_group(name, "introspect", api); };
    return for_each_setting(argv, out, group, api);
}

const CommandRecord getRecord = {
    .name = "get",
    .handler = command_get,
    .summary = "Get a parameter or group",
    .return_values = "A key/value pair for the requested API",
};

const CommandRecord getiRecord = {
    .name = "geti",
    .handler = command_geti,
    .summary = "Get the value of the requested API and also do introspection",
    .return_values = "Key/value for the requested API and also the introspection",
};

const CommandRecord getvRecord = {
    .name = "getv",
    .handler = command_getv,
    .summary = "Get the value of a parameter or group",
    .return_values = "Only the value of the requested API",
};

const CommandRecord getdRecord = {
    .name = "getd",
    .handler = command_getd,
    .summary = "Get the default value of the requested API",
    .return_values = "Key/value showing the default",
};

const CommandRecord getdvRecord = {
    .name = "getdv",
    .handler = command_getdv,
    .summary = "Get the default value only of the requested API",
    .return_values = "Value showing the default",
};

const CommandRecord introspectRecord = {
    .name = "introspect",
    .handler = command_introspect,
    .summary = "Perform introspection on an API or group",
    .synopsis = "API or group",
};

} // namespace qvcd

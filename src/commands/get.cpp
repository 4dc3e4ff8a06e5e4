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

bool is_of_fallback(GetMode mode)
{
    return mode == GetMode::fallback || mode == GetMode::fallback_only;
}

void print_line(const std::string &name, std::string_view value, std::FILE *out, GetMode mode)
{
    if (mode == GetMode::value_only || mode == GetMode::fallback_only)
        reply_line(out, value);
    else
        reply_value(out, name, value);
}

// Values of passwords are hidden, defaults are not. The reader is asked for whatever is printed. It may let
// go of the command lock.
void print_dynamic(Request &request, const Api &api, std::FILE *out, GetMode mode)
{
    const std::string name = api.name();
    const bool password = api.is_password();
    const auto fallback = own_copy(api.fallback());
    const std::string value = rfuncmap_read(request, name).value_or(fallback.value_or(""));
    if (!is_of_fallback(mode))
        print_line(name, hide(value, password), out, mode);
    else if (fallback)
        print_line(name, *fallback, out, mode);
    if (mode == GetMode::introspection)
        ifuncmap_introspect(request, "", name, false, out, value);
}

void print_stored(Request &request, const Api &api, std::FILE *out, GetMode mode)
{
    if (is_of_fallback(mode)) {
        if (const auto fallback = api.fallback())
            print_line(api.name(), *fallback, out, mode);
        return;
    }
    const Api *linked = api.linked();
    print_line(api.name(), hide((linked ? linked : &api)->value(), api.is_password()), out, mode);
    if (mode == GetMode::introspection)
        ifuncmap_introspect(request, "", api.name(), false, out);
}

// One API; 1 when the caller may not read it.
int print_api(Request &request, const Api &api, std::FILE *out, GetMode mode)
{
    if (!api.readable_by(request.mask))
        return 1;
    if (!api.visible_to(request.mask))
        return 0;
    if (api.is_dynamic())
        print_dynamic(request, api, out, mode);
    else
        print_stored(request, api, out, mode);
    return 0;
}

// Visits every API below a group, or below the root, and logs what each took.
void visit_group(const std::string &group, const char *what, const ApiVisitor &visit)
{
    if (!timing_is_on() || !qv_log_wants(kLogTrace))
        return visit_apis(group, visit);
    visit_apis(group, [&](Api &api) {
        const Stopwatch watch;
        const std::string name = api.name();
        visit(api);
        qv_log_print(kLogTrace, "    %s param: [%lu.%03lus] %s\n", what, watch.seconds(),
                     watch.milliseconds(), name.c_str());
    });
}

void log_time(const Stopwatch &watch, const char *name)
{
    qv_log_print(kLogDebug, "  get: [%lu.%03lus]%s\n", watch.seconds(), watch.milliseconds(), name);
}

int do_command_get(Request &request, const Args &argv, std::FILE *out, GetMode mode)
{
    const bool timed = timing_is_on() && qv_log_wants(kLogDebug);
    int result = 0;
    const auto api = [&](Api &one) { return print_api(request, one, out, mode); };
    const auto group = [&](const std::string &name) { visit_group(name, "get", api); };
    for (const std::string &name : argv) { // one at a time: each is timed
        const auto watch = timed ? std::optional<Stopwatch>(std::in_place) : std::nullopt;
        result |= visit_setting(name, out, group, api);
        if (watch)
            log_time(*watch, (" " + name_for_log(name)).c_str());
        send_long_reply();
    }
    if (argv.empty()) {
        const Stopwatch watch;
        group("");
        log_time(watch, "");
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
    const auto api = [&](const Api &one) {
        if (!one.is_hidden_from(request.mask))
            ifuncmap_introspect(request, "", one.name(), false, out);
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

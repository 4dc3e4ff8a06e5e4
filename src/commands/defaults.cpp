#include "commands/defaults.h"

#include "base/limits.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/change.h"
#include "commands/script_hook.h"
#include "commands/set.h"
#include "commands/targets.h"
#include "commands/user.h"
#include "model/populate.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/api_event.h"
#include "store/database.h"

#include <unordered_map>

namespace qvcd {

namespace {

constexpr char kPreDefaultScript[] = "/usr/share/qvcontrol/pre_default_script";
constexpr char kPostDefaultScript[] = "/usr/share/qvcontrol/post_default_script";
constexpr char hide_password[] = "*****";

void print_default(const Request &request, const Api &api, std::FILE *out)
{
    if (api.name().find("__") != std::string::npos || !api.visible_to(request.mask))
        return;
    const auto fallback = api.fallback();
    if (!fallback || *fallback == api.value())
        return;
    std::string line(api.is_secret() ? hide_password : api.value());
    line.append(" (").append(*fallback).append(")");
    reply_value(out, api.name(), line);
}

int check_flag(const Request &request, const Args &argv, std::FILE *out, Classifier flag)
{
    for_each_flagged(argv, out, flag, [&](const Api &api) {
        if (api.visible_to(request.mask))
            reply_value(out, api.name(), api.shown(api.value()));
        return 0;
    });
    return 0;
}

int command_check_modified(Request &request, Args &argv, std::FILE *out)
{
    return check_flag(request, argv, out, flag_modified);
}

int command_check_applied(Request &request, Args &argv, std::FILE *out)
{
    return check_flag(request, argv, out, flag_apply_pending);
}

int command_check_default(Request &request, Args &argv, std::FILE *out)
{
    const auto group = [&](const std::string &name) {
        for (const std::string &one : hdfutils_parent_names(metaDB.find(name), name, meta_has_default)) {
            if (const Api *api = find_api(one))
                print_default(request, *api, out);
        }
    };
    for_each_setting(argv, out, group, [&](const Api &api) {
        print_default(request, api, out);
        return 0;
    });
    return 0;
}

int restore_param_to_default(const Request &request, Api &api, std::FILE *out)
{
    if (!api.writable_by(request.mask))
        return 1;
    const auto fallback = api.fallback();
    if (api.is_dynamic() || !fallback || api.value() == *fallback)
        return 0;
    raise_flags(request, api, SetMode::set);
    const std::string old(api.value());
    note_set(request, api.name(), old, *fallback, api.is_secret());
    store_setting(api, *fallback);
    publish_api("default", api, *fallback, old);
    reply_value(out, api.name(), *fallback);
    qv_log_print(kLogNotice, "Default %s=%s\n", api.name().c_str(), api.for_log(*fallback).c_str());
    return 0;
}

const Args network_settings = {"Network.hostname", "Network.Interfaces", "Services.Zeroconf",
                               "Services.HTTP"};
const Args all_settings = {};
const Args default_settings = {"default"};

struct FactoryScope {
    const char *word;
    const Args *defaults; // what goes back to its defaults
    const Args *kept;     // what is read back from the system afterwards
};
constexpr FactoryScope kFactoryScopes[] = {
    {"all", &all_settings, nullptr},
    {"network", &network_settings, nullptr},
    {"nonetwork", &all_settings, &network_settings},
};

constexpr char kFactoryUsage[] = "all       - reset entire settings tree and user settings\n"
                                 "network   - reset Network.Interfaces,Network.hostname,Services.HTTP,\n"
                                 "            Services.Zeroconf and user settings\n"
                                 "nonetwork - reset entire settings tree but the above, and user settings\n";

const FactoryScope *find_scope(const std::string &word)
{
    for (const FactoryScope &row : kFactoryScopes) {
        if (word == row.word)
            return &row;
    }
    return nullptr;
}

int command_factory(Request &request, Args &argv, std::FILE *out)
{
    if ((request.mask & kLevel1Bits) == 0) {
        reply_line(out, API_E_INVALID_PERMISSION);
        return 1;
    }
    const FactoryScope *scope = find_scope(argv.empty() ? "all" : argv.front());
    if (!scope) {
        reply_text(out, kFactoryUsage);
        return 0;
    }
    note_event(request);
    cmd_script_hook(kPreDefaultScript, argv);
    Args names = *scope->defaults;
    command_default(request, names, out);
    if (scope->kept) {
        Args kept = *scope->kept;
        command_revert(request, kept, out);
    }
    Args users = default_settings;
    command_user(request, users, out);
    cmd_script_hook(kPostDefaultScript, argv);
    notify_publish({"factory_reset", request.caller.user, scope->word});
    return 0;
}

// What is read again takes the place of what others set and did not save: not for a caller who may not write
// it. What nobody may write is nobody's change.
bool may_reload(const Request &request, const std::string &api)
{
    const unsigned writers = meta_get_perm(api) & kWriteBits;
    return writers == 0 || (writers & request.mask) != 0;
}

using Values = std::unordered_map<std::string, std::string>;

// Kept only while somebody listens.
Values values_for_events(const std::string &group)
{
    Values values;
    if (qvnotify_has_listeners())
        visit_apis(group, [&](Api &api) { values.emplace(api.name(), api.value()); });
    return values;
}

void publish_reloaded(const std::string &group, const Values &before)
{
    if (before.empty())
        return;
    visit_apis(group, [&](Api &api) {
        const auto old = before.find(api.name());
        if (old != before.end() && old->second != api.value())
            publish_api("reload", api, api.value(), old->second);
    });
}

void reload_group(Request &request, const std::string &name)
{
    const Values before = values_for_events(name);
    hdfdb_populate(request, name, [&](const std::string &api) { return may_reload(request, api); });
    publish_reloaded(name, before);
}

int command_reload(Request &request, Args &argv, std::FILE *out)
{
    for (const std::string &argument : argv) {
        const std::string name = cut(argument, kMaxNameBytes);
        const Node node = name.empty() ? Node() : metaDB.find(name);
        if (node.first_child()) {
            reload_group(request, name);
            reply_line(out, name);
        } else {
            reply_value(out, name, API_E_PARAM_NOT_FOUND);
            qv_log_print(kLogInfo, "Reload %s=%s\n", name_for_log(name).c_str(), API_E_PARAM_NOT_FOUND);
        }
    }
    if (argv.empty())
        reload_group(request, "");
    return 0;
}

} // namespace

int command_default(Request &request, Args &argv, std::FILE *out)
{
    return for_each_setting(argv, out, [&](Api &api) { return restore_param_to_default(request, api, out); });
}

namespace {
constexpr char kCheckSynopsis[] = "<parameter> or <group> to check";
}

const CommandRecord checkmodRecord = {
    .name = "checkmod",
    .handler = command_check_modified,
    .summary = "Check if group or parameter has been modified",
    .synopsis = kCheckSynopsis,
    .return_values = "List of parameters that have been modified",
};

const CommandRecord checkappRecord = {
    .name = "checkapp",
    .handler = command_check_applied,
    .summary = "Check if group or parameter has been applied",
    .synopsis = kCheckSynopsis,
};

const CommandRecord checkdefRecord = {
    .name = "checkdef",
    .handler = command_check_default,
    .summary = "Check if group or parameter has been changed from default",
    .synopsis = kCheckSynopsis,
};

const CommandRecord defaultRecord = {
    .name = "default",
    .handler = command_default,
    .summary = "Set the parameter or group to it's default values",
    .synopsis = "<parameter> or <group>",
};

const CommandRecord factoryResetRecord = {
    .name = "factory_reset",
    .handler = command_factory,
    .summary = "Perform a factory reset",
    .synopsis = "all, network, nonetwork",
    .errors = "##Invalid permission#: only administrators may reset the appliance. The result is 1.",
    .notes = "This command will default all the settings",
    .recorded = ChangeNotes::Level::all,
};

const CommandRecord reloadRecord = {
    .name = "reload",
    .handler = command_reload,
    .summary = "Re-read from the source of the API",
    .synopsis = "API or group to reload",
    .return_values = "Key/value of API(s) reloaded",
    .notes =
        "Mostly used for debugging. What the caller may not write is passed over, but for what nobody may.",
};

} // namespace qvcd

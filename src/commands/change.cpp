#include "commands/change.h"

#include "base/value.h"
#include "commands/apply.h"
#include "commands/save.h"
#include "commands/script_hook.h"
#include "commands/set.h"
#include "commands/targets.h"
#include "funcs/add_remove_map.h"
#include "funcs/read_map.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/api_event.h"

namespace qvcd {

namespace {

constexpr char kPostRevertScript[] = "/usr/share/qvcontrol/post_revert_script";

// 1 when the caller may not write the API or the system does not tell its value.
int revert_param(Request &request, const Api &changed, std::FILE *out)
{
    if (!changed.writable_by(request.mask))
        return 1;
    const std::string name = changed.name();
    const std::optional<std::string> value = rfuncmap_read(request, name);
    Api *api = find_api(name); // it may have been deleted while the reader waited
    if (!value || !api)
        return 1;
    const std::string old(api->value());
    store_setting(*api, *value);
    if (old != *value)
        publish_api("revert", *api, *value, old);
    flag_restored(name, *value);
    reply_value(out, name, api->shown(*value));
    qv_log_print(kLogNotice, "Revert %s=%s\n", name.c_str(), api->for_log(*value).c_str());
    if (!is_on_disk(name)) // a save failed, but the file has its value: it is still to be saved
        meta_set(name, "mod", "1");
    return 0;
}

// Those that are names: the set has complained about the others.
Args names_of(const Args &argv)
{
    Args names;
    for (const std::string &arg : argv) {
        std::string name = arg.substr(0, arg.find('='));
        if (name_kind(name) == NameKind::api)
            names.push_back(std::move(name));
    }
    return names;
}

int command_modify(Request &request, Args &argv, std::FILE *out)
{
    const int set = command_sets(request, argv, out);
    Args names = names_of(argv);
    if (names.empty() && !argv.empty()) // no name is not all names
        return set;
    if (set == 0)
        return command_save(request, names, out) == 0 ? 0 : 1;
    command_revert(request, names, out);
    return 1;
}

// What add and remove need of their argument "name=value".
struct Member {
    std::string api;
    std::string value;
    std::string file;
    std::string function;
};

std::optional<Member> parse_member(const Args &argv, const char *attribute)
{
    // A value ends at its next "=".
    const std::vector<std::string> words = split_words(argv.empty() ? "" : argv.front(), "=");
    if (words.size() < 2 || name_kind(words[0]) == NameKind::nothing)
        return std::nullopt;
    const auto value = url_unescape(words[1]);
    const auto file = meta_get(words[0], "file");
    const auto function = meta_get(words[0], attribute);
    if (!value || !file || !function)
        return std::nullopt;
    return Member{words[0], *value, *file, *function};
}

// The error that keeps the caller from changing the collection; null: nothing does.
const char *member_error(const Request &request, const Member &member)
{
    if ((request.mask & meta_get_perm(member.api) & kWriteBits) == 0)
        return API_E_INVALID_PERMISSION;
    return value_error(member.value);
}

int command_add(Request &request, Args &argv, std::FILE *out)
{
    const auto member = parse_member(argv, "add");
    if (!member)
        return 0;
    if (const char *error = member_error(request, *member))
        return refuse(member->api, error, out);
    return addfuncmap_add(request, member->file, member->api, member->value, out);
}

int command_remove(Request &request, Args &argv, std::FILE *out)
{
    const auto member = parse_member(argv, "remove");
    if (!member)
        return 0;
    if (const char *error = member_error(request, *member))
        return refuse(member->api, error, out);
    const int result = removefuncmap_remove(request, member->file, member->api, member->value, out);
    qv_log_print(kLogInfo, "Remove %s from %s using %s func\n",
                 value_for_log(member->api, member->value).c_str(), member->api.c_str(),
                 member->function.c_str());
    return result;
}

} // namespace

int command_revert(Request &request, Args &argv, std::FILE *out)
{
    const int result = for_each_flagged(argv, out, flag_modified_or_unapplied,
                                        [&](const Api &api) { return revert_param(request, api, out); });
    if (result == 0)
        cmd_script_hook(kPostRevertScript, argv);
    return result;
}

int command_update(Request &request, Args &argv, std::FILE *out)
{
    const int set = command_set(request, argv, out);
    Args names = names_of(argv);
    if (names.empty() && !argv.empty()) // no name is not all names
        return set;
    if (set == 0)
        return command_save(request, names, out) == 0 && command_apply(request, names, out) == 0 ? 0 : 1;
    command_revert(request, names, out);
    return 1;
}

const CommandRecord revertRecord = {
    .name = "revert",
    .handler = command_revert,
    .summary = "Revert an API or group",
    .synopsis = "revert [<API or group> ...]",
    .errors =
        "<name>=##Parameter not found#: there is no such API or group. The others are reverted, and the "
        "result is 1. It is 1 too when an API that was named may not be written or can not be read; its "
        "value stays.",
    .description =
        "Undoes changes that were not saved or not applied: reads the named APIs, those of a group, or "
        "all of them back from the system. When everything went well the appliance's "
        "post_revert_script runs.",
};

const CommandRecord updateRecord = {
    .name = "update",
    .handler = command_update,
    .summary = "Perform a set, save and apply",
    .synopsis = "update <API>=<value> ...",
    .errors =
        "<API>=<error>: the value was refused. All named APIs are reverted, nothing is saved or applied, "
        "and the result is 1. It is 1 too when saving or applying fails.",
    .description =
        "Sets APIs, saves them, and makes them take effect. Values are URL-escaped. It stands for the "
        "commands set, save and apply, each of which runs when the one before it succeeded.",
    .assigns = true,
    .recorded = ChangeNotes::Level::lasting,
};

const CommandRecord modifyRecord = {
    .name = "modify",
    .handler = command_modify,
    .summary = "Perform a set and save command",
    .synopsis = "modify <API>=<value> ...",
    .errors = "<API>=<error>: the value was refused. All named APIs are reverted, nothing is saved, and the "
              "result is 1. It is 1 too when saving fails.",
    .description =
        "Sets APIs and saves them, without making them take effect: it stands for the commands sets "
        "and save. Values are URL-escaped.",
    .assigns = true,
    .recorded = ChangeNotes::Level::lasting,
};

const CommandRecord addRecord = {
    .name = "add",
    .handler = command_add,
    .summary = "Perform the add function associated with an api",
    .synopsis = "add <API>=<value>",
    .errors =
        "The error lines are those of the function. An API without such a function gives no line, and the "
        "result 0.",
    .description = "Adds a value to an API that is a list, such as the profiles of a group, with the "
                   "function that the API's "
                   "metadata names. The value is URL-escaped and ends at a second \"=\".",
    .assigns = true,
    .recorded = ChangeNotes::Level::lasting,
};

const CommandRecord removeRecord = {
    .name = "remove",
    .handler = command_remove,
    .summary = "Perform the remove function associated with an api",
    .synopsis = "remove <API>=<value>",
    .errors =
        "The error lines are those of the function. An API without such a function gives no line, and the "
        "result 0.",
    .description = "Removes a value from an API that is a list, such as the profiles of a group, with the "
                   "function that the API's "
                   "metadata names. The value is URL-escaped and ends at a second \"=\".",
    .assigns = true,
    .recorded = ChangeNotes::Level::lasting,
};

} // namespace qvcd

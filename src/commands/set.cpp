#include "commands/set.h"

#include "base/limits.h"
#include "base/notify.h"
#include "base/reply.h"
#include "base/text.h"
#include "funcs/check_map.h"
#include "funcs/write_map.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/database.h"

namespace qvcd {

namespace {

int refuse(const std::string &api, std::string_view error, std::FILE *out)
{
    reply_value(out, api, error);
    return 1;
}

int refuse_and_log(const std::string &api, const char *error, std::FILE *out)
{
    qv_log_print(kLogInfo, "Set %s=%s\n", api.c_str(), error);
    return refuse(api, error, out);
}

void raise_flags(Request &request, const std::string &api, SetMode mode)
{
    if (mode == SetMode::set || mode == SetMode::sets)
        meta_set(api, "mod", "1");
    const bool applies = mode == SetMode::set || mode == SetMode::seta;
    if (applies && (request.mask & meta_get_perm(api) & kApplyBits) != 0 && meta_get(api, "apply"))
        meta_set(api, "noapp", "1");
}

void follow_link(const std::string &api, const std::string &value)
{
    const auto link = meta_get_this_level(api, "link");
    if (link && !link->empty())
        hdfDB.set(*link, value);
}

int do_command_set(Request &request, const Args &argv, std::FILE *out, SetMode mode)
{
    int result = 0;
    for (const std::string &whole : argv) {
        const std::string argument = cut(whole, kMaxValueBytes);
        const std::size_t equals = argument.find('=');
        const std::string api = argument.substr(0, equals);
        int failed = 0;
        if (equals == std::string::npos)
            failed = refuse_and_log(argument, API_E_INVALID_FORMAT, out);
        else if (api.empty() || !hdfDB.get(api))
            failed = refuse_and_log(api, API_E_PARAM_NOT_FOUND, out);
        else
            failed = set_param(request, api, argument.substr(equals + 1), out, mode);
        if (failed)
            result = 1;
    }
    return result;
}

// The first argument as name and decoded value.
bool split_insert(const Args &argv, std::string &api, std::string &value)
{
    const std::size_t equals = argv.empty() ? std::string::npos : argv.front().find('=');
    if (equals == std::string::npos)
        return false;
    api = cut(argv.front().substr(0, equals), kMaxNameBytes);
    const auto decoded = url_unescape(argv.front().substr(equals + 1));
    if (!decoded || !is_tree_name(api))
        return false;
    value = cut(*decoded, kMaxValueBytes);
    return true;
}

int command_insert(Request &, Args &argv, std::FILE *)
{
    std::string api;
    std::string value;
    if (!split_insert(argv, api, value))
        return 1;
    hdfDB.set(api, value);
    metaDB.set(api + ".inserted", "1");
    qv_log_print(kLogInfo, "Insert %s=%s\n", api.c_str(),
                 meta_is_password(api) ? kHiddenPassword : value.c_str());
    return 0;
}

int command_delete(Request &, Args &argv, std::FILE *)
{
    if (argv.empty() || !meta_get_this_level(argv.front(), "inserted"))
        return 1;
    hdfDB.remove(argv.front());
    metaDB.remove(argv.front());
    qv_log_print(kLogInfo, "Remove %s\n", argv.front().c_str());
    return 0;
}

} // namespace

int set_param(Request &request, const std::string &api, const std::string &escaped, std::FILE *out,
              SetMode mode)
{
    if ((request.mask & meta_get_perm(api) & kWriteBits) == 0)
        return refuse(api, API_E_INVALID_PERMISSION, out);
    const auto value = url_unescape(escaped);
    if (!value)
        return refuse(api, API_E_INVALID_CHARACTER, out);
    const bool dynamic = meta_is_true(api, "dynamic");
    if (!dynamic && hdfDB.get(api) == *value)
        return 0;
    if (const auto error = cfuncmap_check(api, *value))
        return refuse(api, *error, out);
    hdfDB.set(api, *value);
    if (dynamic)
        wfuncmap_write(api, *value);
    else
        raise_flags(request, api, mode);
    follow_link(api, *value);
    const bool secret = meta_is_password(api);
    reply_value(out, api, *value);
    qv_log_print(kLogNotice, "Set %s=%s\n", api.c_str(), secret ? kHiddenPassword : value->c_str());
    notify_publish_on("set", api, *value, secret ? Secret::yes : Secret::no);
    return 0;
}

int command_set(Request &request, Args &argv, std::FILE *out)
{
    return do_command_set(request, argv, out, SetMode::set);
}

int command_sets(Request &request, Args &argv, std::FILE *out)
{
    return do_command_set(request, argv, out, SetMode::sets);
}

int command_seta(Request &request, Args &argv, std::FILE *out)
{
    return do_command_set(request, argv, out, SetMode::seta);
}

int command_setn(Request &request, Args &argv, std::FILE *out)
{
    return do_command_set(request, argv, out, SetMode::none);
}

namespace {
constexpr char kSetSynopsis[] = "API or group to set";
constexpr char kInternalNote[] = "Used for internal purposes";
} // namespace

const CommandRecord setRecord = {
    .name = "set",
    .handler = command_set,
    .summary = "Set an API",
    .synopsis = kSetSynopsis,
    .notes = "More to come",
};

const CommandRecord setsRecord = {
    .name = "sets",
    .handler = command_sets,
    .summary = "Set an API and mark as modified",
    .synopsis = kSetSynopsis,
    .notes = kInternalNote,
};

const CommandRecord setaRecord = {
    .name = "seta",
    .handler = command_seta,
    .summary = "Set an API and mark as applied",
    .synopsis = kSetSynopsis,
    .notes = kInternalNote,
};

// Runs the handler of "seta", whatever the summary says: scripts in the field count on the flag.
const CommandRecord setnRecord = {
    .name = "setn",
    .handler = command_seta,
    .summary = "Set an API and don't mark any modified or applied flags",
    .synopsis = kSetSynopsis,
    .notes = kInternalNote,
};

const CommandRecord insertRecord = {
    .name = "insert",
    .handler = command_insert,
    .summary = "Add a temporary API into the database",
    .synopsis = "Key/value pair to add",
};

const CommandRecord deleteRecord = {
    .name = "delete",
    .handler = command_delete,
    .summary = "Remove a temporary API",
    .synopsis = "Key to remove",
    .notes = "Used with the insert command.",
};

} // namespace qvcd

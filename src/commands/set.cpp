#include "commands/set.h"

#include "base/notify.h"
#include "base/reply.h"
#include "base/value.h"
#include "commands/save.h"
#include "commands/targets.h"
#include "funcs/check_map.h"
#include "funcs/write_map.h"
#include "platform/api_errors.h"
#include "platform/log.h"

namespace qvcd {

namespace {

// What is no name may be a value that lost its own.
int refuse_and_log(const std::string &api, const char *error, std::FILE *out)
{
    qv_log_print(kLogInfo, "Set %s=%s\n", name_for_log(api).c_str(), error);
    return refuse(api, error, out);
}

// The API that another follows, when it exists.
std::optional<std::string> followed_by(const std::string &api)
{
    auto link = meta_get_this_level(api, "link");
    return link && name_kind(*link) == NameKind::api ? link : std::nullopt;
}

bool can_be_written(const std::string &api)
{
    return write_row(meta_get(api, "write").value_or("")).kind != WriteKind::none;
}

int set_argument(Request &request, const std::string &argument, std::FILE *out, SetMode mode)
{
    const std::size_t equals = argument.find('=');
    const std::string api = argument.substr(0, equals);
    if (equals == std::string::npos)
        return refuse_and_log(argument, API_E_INVALID_FORMAT, out);
    if (name_kind(api) != NameKind::api)
        return refuse_and_log(api, API_E_PARAM_NOT_FOUND, out);
    const auto value = url_unescape(std::string_view(argument).substr(equals + 1));
    return value ? set_param(request, api, *value, out, mode) : refuse(api, API_E_INVALID_CHARACTER, out);
}

int do_command_set(Request &request, const Args &argv, std::FILE *out, SetMode mode)
{
    int result = 0;
    for (const std::string &argument : argv)
        result |= set_argument(request, argument, out, mode);
    return result;
}

} // namespace

void raise_flags(const Request &request, const std::string &api, SetMode mode)
{
    if (mode == SetMode::set || mode == SetMode::sets)
        meta_set(api, "mod", "1");
    const bool applies = mode == SetMode::set || mode == SetMode::seta;
    if (applies && (request.mask & meta_get_perm(api) & kApplyBits) != 0 && meta_get(api, "apply"))
        flag_unapplied(api, hdfDB.get_or(api, ""));
}

void store_setting(const std::string &api, const std::string &value)
{
    hdfDB.set(api, value);
    if (const auto follower = followed_by(api))
        hdfDB.set(*follower, value);
}

int set_param(Request &request, const std::string &api, const std::string &value, std::FILE *out,
              SetMode mode)
{
    if ((request.mask & meta_get_perm(api) & kWriteBits) == 0)
        return refuse(api, API_E_INVALID_PERMISSION, out);
    if (const char *error = value_error(value))
        return refuse(api, error, out);
    const bool dynamic = meta_is_true(api, "dynamic");
    if (!dynamic && hdfDB.get(api) == value)
        return 0;
    if (const auto error = cfuncmap_check(api, value))
        return refuse(api, *error, out);
    const bool secret = meta_is_password(api);
    if (!dynamic)
        raise_flags(request, api, mode);
    else if (can_be_written(api) && wfuncmap_write(api, value) != 0)
        return refuse(api, kSaveFailed, out);
    if (name_kind(api) == NameKind::api) // it may have been deleted while the write waited
        store_setting(api, value);
    reply_value(out, api, value);
    qv_log_print(kLogNotice, "Set %s=%s\n", api.c_str(), value_for_log(api, value).c_str());
    notify_publish_on("set", api, value, secret ? Secret::yes : Secret::no);
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
    .assigns = true,
};

const CommandRecord setsRecord = {
    .name = "sets",
    .handler = command_sets,
    .summary = "Set an API and mark as modified",
    .synopsis = kSetSynopsis,
    .notes = kInternalNote,
    .assigns = true,
};

const CommandRecord setaRecord = {
    .name = "seta",
    .handler = command_seta,
    .summary = "Set an API and mark as applied",
    .synopsis = kSetSynopsis,
    .notes = kInternalNote,
    .assigns = true,
};

// Runs the handler of "seta", whatever the summary says: scripts in the field count on the flag.
const CommandRecord setnRecord = {
    .name = "setn",
    .handler = command_seta,
    .summary = "Set an API and don't mark any modified or applied flags",
    .synopsis = kSetSynopsis,
    .notes = kInternalNote,
    .assigns = true,
};

} // namespace qvcd

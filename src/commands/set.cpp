#include "commands/set.h"

#include "base/reply.h"
#include "change/assignment.h"
#include "commands/save.h"
#include "commands/targets.h"
#include "funcs/file_writes.h"
#include "funcs/write_map.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/api_event.h"

namespace qvcd {

namespace {

// What is no name may be a value that lost its own.
int refuse_and_log(const std::string &api, const char *error, std::FILE *out)
{
    qv_log_print(kLogInfo, "Set %s=%s\n", name_for_log(api).c_str(), error);
    return refuse(api, error, out);
}

bool can_be_written(const Api &api)
{
    return write_row(meta_get(api.name(), "write").value_or("")).kind != WriteKind::none;
}

int set_argument(Request &request, const std::string &argument, std::FILE *out, SetMode mode)
{
    const Assignment asked = parse_assignment(argument);
    return asked.error ? refuse_and_log(asked.name, asked.error, out)
                       : set_param(request, *asked.api, asked.value, out, mode);
}

void report_set(const Api &api, const std::string &value, const std::string &old, std::FILE *out)
{
    reply_value(out, api.name(), value);
    if (qv_log_wants(kLogNotice))
        qv_log_print(kLogNotice, "Set %s=%s\n", api.name().c_str(), api.for_log(value).c_str());
    publish_api("set", api, value, old);
}

// Written to the system at once, for which the command lock may be let go.
int set_dynamic(const Api &api, const std::string &value, std::FILE *out)
{
    const std::string name = api.name();
    const std::string old(api.value());
    if (can_be_written(api) && wfuncmap_write(name, value) != 0)
        return refuse(name, kSaveFailed, out);
    Api *written = find_api(name);
    if (!written) // deleted while the write waited
        return refuse(name, API_E_PARAM_NOT_FOUND, out);
    store_setting(*written, value);
    report_set(*written, value, old, out);
    return 0;
}

int do_command_set(Request &request, const Args &argv, std::FILE *out, SetMode mode)
{
    int result = 0;
    for (const std::string &argument : argv)
        result |= set_argument(request, argument, out, mode);
    return result;
}

} // namespace

void raise_flags(const Request &request, Api &api, SetMode mode)
{
    if (mode == SetMode::set || mode == SetMode::sets)
        flag_unsaved(api, request.caller.session);
    const bool applies = mode == SetMode::set || mode == SetMode::seta;
    if (applies && api.applicable_by(request.mask) && api.has_action())
        flag_unapplied(api, request.caller.session);
}

int set_param(Request &request, Api &api, const std::string &value, std::FILE *out, SetMode mode)
{
    if (!api.is_dynamic() && api.writable_by(request.mask) && api.value() == value)
        return 0;
    if (const auto error = assignment_error(request, api, value))
        return refuse(api.name(), *error, out);
    if (api.is_dynamic())
        return set_dynamic(api, value, out);
    raise_flags(request, api, mode);
    const std::string old(api.value());
    note_set(request, api.name(), old, value, api.is_secret());
    store_setting(api, value);
    report_set(api, value, old, out);
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

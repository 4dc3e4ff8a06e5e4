// To add an apply function: a function here, a row in the table, a line in docs/model.md.

#include "funcs/apply_map.h"

#include "base/args.h"
#include "base/command_lock.h"
#include "base/failures.h"
#include "base/file_text.h"
#include "base/limits.h"
#include "base/shell.h"
#include "base/shell_later.h"
#include "base/text.h"
#include "funcs/func_map.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/profile_files.h"

#include <algorithm>
#include <chrono>

namespace qvcd {

namespace {

// The API's name, the action ("apply" when the command asks), at most kMaxCallArguments arguments. 0:
// success; the functions that run a shell return its wait status.
using ApplyFunction = int (*)(Request &request, const std::string &api, std::string_view action,
                              const Args &args);

int afunc_undefined(Request &request, const std::string &api, std::string_view action, const Args &args);
int afunc_no_apply(Request &request, const std::string &api, std::string_view action, const Args &args);
int afunc_syscall(Request &request, const std::string &api, std::string_view action, const Args &args);
int afunc_syscall_delay(Request &request, const std::string &api, std::string_view action, const Args &args);
int afunc_initd_restart(Request &request, const std::string &api, std::string_view action, const Args &args);
int afunc_settime(Request &request, const std::string &api, std::string_view action, const Args &args);
int afunc_profile(Request &request, const std::string &api, std::string_view action, const Args &args);
int afunc_profile2(Request &request, const std::string &api, std::string_view action, const Args &args);

constexpr std::string_view kDelayed = "syscall_delay";

constexpr std::size_t kMaxCallArguments = 5;

struct ApplyRow {
    std::string_view name;
    ApplyFunction function;
    std::size_t least = 0; // arguments
    std::size_t most = 0;
};

constexpr ApplyRow afuncCmdMap[] = {
    {"undefined", afunc_undefined},
    {"no_apply", afunc_no_apply},
    {"syscall", afunc_syscall, 1, kMaxCallArguments},
    {kDelayed, afunc_syscall_delay, 2, kMaxCallArguments},
    {"initd_restart", afunc_initd_restart, 1, kMaxCallArguments},
    {"settime_apply", afunc_settime},
    {"profile_apply", afunc_profile, 1, 1},
    {"profile2_apply", afunc_profile2},
};

int (*profile_loader)(Request &, const std::string &) = nullptr; // filled by the profile commands

constexpr std::size_t kMaxCommandBytes = 1023;
constexpr std::size_t kMaxQuietCommandBytes = 512; // with the redirection
constexpr std::string_view kQuiet = " >/dev/null 2>&1";

int afunc_undefined(Request &, const std::string &api, std::string_view action, const Args &)
{
    qv_log_print(kLogInfo, "!! Undefined apply function: param:%s action:%s\n", api.c_str(),
                 std::string(action).c_str());
    return 1;
}

int afunc_no_apply(Request &, const std::string &, std::string_view, const Args &)
{
    return 0;
}

std::string join_words(const Args &args, std::size_t first)
{
    std::string text;
    for (std::size_t i = first; i < args.size(); ++i)
        text += args[i] + " ";
    return cut(text, kMaxCommandBytes);
}

std::chrono::seconds time_limit(const std::string &api)
{
    return shell_time_of(meta_get(api, "timeout")).value_or(kShellApplyLimit);
}

// `key`: what must not run twice at once. What it says of errors is for who keeps that, else for nobody.
int do_syscall(const std::string &api, const std::string &command, const std::string &key)
{
    const int status =
        shell_run(shell_errors_are_kept() ? shell_with_errors(command) : command, time_limit(api), key);
    qv_log_print(kLogDebug, "  syscall: %s\n", command.c_str());
    return status;
}

int afunc_syscall(Request &, const std::string &api, std::string_view action, const Args &args)
{
    if (action != "apply" || args.empty())
        return 0;
    std::string command = join_words(args, 0);
    // All of the redirection or none: a part of it would name another file.
    if (command.size() + kQuiet.size() <= kMaxQuietCommandBytes)
        command += kQuiet;
    return do_syscall(api, command, command);
}

int afunc_syscall_delay(Request &, const std::string &api, std::string_view, const Args &args)
{
    if (args.empty())
        return 1;
    const std::chrono::seconds delay{std::max(0, c_int(args.front()))};
    std::string call(kDelayed);
    for (const std::string &arg : args)
        call += " " + arg;
    const auto failed = [api, call](int status, const std::string &errors) {
        if (const CommandLock lock; lock.held())
            note_failure({api}, call, status, errors);
    };
    return shell_run_later(delay, join_words(args, 1) + std::string(kQuiet), time_limit(api), failed) ? 0 : 1;
}

int afunc_initd_restart(Request &, const std::string &api, std::string_view action, const Args &args)
{
    int status = 0;
    if (action != "apply")
        return status;
    for (const std::string &service : args) {
        const std::string script = qv_sysroot_path("/etc/init.d/" + service);
        if (file_exists(script))
            status = do_syscall(api, script + " restart > /dev/null 2>&1", script);
    }
    return status;
}

int afunc_settime(Request &, const std::string &api, std::string_view, const Args &)
{
    const auto value = hdfDB.get(api);
    if (!value || value->empty()) {
        qv_log_print(kLogDebug, "User did not set a date to apply.\n");
        return -1;
    }
    const auto code = parse_timecode(*value);
    if (!code)
        return -1;
    const std::tm local = local_time(*code);
    qv_log_print(kLogInfo, "Set time to %d-%d-%d %d:%d:%d\n", local.tm_year + 1900, local.tm_mon + 1,
                 local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return qv_time_set_local(local);
}

int load_profile_of(Request &request, const std::string &api)
{
    const int result = profile_loader ? profile_loader(request, api) : 1;
    if (result != 0)
        qv_log_print(kLogInfo, "Error exceuting profile command\n"); // the log has always spelt it so
    return result;
}

int afunc_profile(Request &request, const std::string &, std::string_view, const Args &args)
{
    return !args.empty() && args.front() == "current" ? load_profile_of(request, kCurrentProfileApi) : 0;
}

int afunc_profile2(Request &request, const std::string &api, std::string_view, const Args &)
{
    return load_profile_of(request, api);
}

struct Call {
    std::string name;
    Args args;
};

Call split_call(std::string_view text)
{
    Call call;
    call.args = split_words(text, kListSeparators);
    if (call.args.empty())
        return call;
    call.name = std::move(call.args.front());
    call.args.erase(call.args.begin());
    if (call.args.size() > kMaxCallArguments)
        call.args.resize(kMaxCallArguments);
    return call;
}

int run_call(Request &request, const char *label, std::string_view action, const std::string &api,
             const Call &call)
{
    const Stopwatch watch;
    const int result = row_or_first(afuncCmdMap, call.name).function(request, api, action, call.args);
    qv_log_print(kLogDebug, "  %s: [%lu.%03lus]: %s %s\n", label, watch.seconds(), watch.milliseconds(),
                 call.name.c_str(), api.c_str());
    return result;
}

} // namespace

std::vector<ApplySyntax> apply_syntax()
{
    std::vector<ApplySyntax> rows;
    for (const ApplyRow &row : afuncCmdMap)
        rows.push_back({row.name, row.least, row.most});
    return rows;
}

int cmd_create_afuncmap_hdf()
{
    return log_func_map("afunc", afuncCmdMap);
}

void afuncmap_set_profile_loader(int (*loader)(Request &request, const std::string &api))
{
    profile_loader = loader;
}

bool afuncmap_sets_settings(std::string_view call)
{
    const ApplyRow &row = row_or_first(afuncCmdMap, split_call(call).name);
    return row.function == afunc_profile || row.function == afunc_profile2;
}

int afuncmap_apply_direct(Request &request, std::string_view action, std::string_view api,
                          std::string_view call, int &result)
{
    result = run_call(request, "apply_direct", action, std::string(api), split_call(call));
    return 0;
}

std::optional<std::string> afuncmap_without_delay(std::string_view call)
{
    const auto [name, args] = split_call(call);
    return name == kDelayed && args.size() > 1 ? std::optional("syscall " + join_words(args, 1))
                                               : std::nullopt;
}

} // namespace qvcd

#include "commands/apply.h"

#include "base/command_lock.h"
#include "base/limits.h"
#include "base/notify.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/targets.h"
#include "funcs/apply_map.h"
#include "platform/api_errors.h"
#include "platform/log.h"

#include <unistd.h>

namespace qvcd {

namespace {

constexpr std::size_t kMaxCachedCommands = 9; // of one apply; further ones wait for the next
constexpr std::size_t kMaxNamesOfCommand = 10;

// One distinct action and the APIs that asked for it.
struct CachedCommand {
    std::string command;
    std::vector<std::string> names;
};
using ApplyCache = std::vector<CachedCommand>;

void note_api(CachedCommand &entry, const std::string &api)
{
    flag_applied(api);
    if (entry.names.size() < kMaxNamesOfCommand)
        entry.names.push_back(api);
}

void cache_command(ApplyCache &cache, const std::string &command, const std::string &api)
{
    for (std::size_t i = 0; i < cache.size(); ++i) {
        if (cache[i].command == command) {
            qv_log_print(kLogDebug, "  already in cache %zu [%s]\n", i, command.c_str());
            note_api(cache[i], api);
            return;
        }
    }
    if (cache.size() == kMaxCachedCommands)
        return; // the API stays unapplied
    qv_log_print(kLogDebug, "  add to cache %zu [%s]\n", cache.size(), command.c_str());
    note_api(cache.emplace_back(CachedCommand{command, {}}), api);
}

// "apply2" of the API itself, then the inherited "apply", cut at commas.
std::vector<std::string> commands_of(const std::string &api)
{
    std::vector<std::string> commands;
    for (const auto &text : {meta_get_this_level(api, "apply2"), meta_get(api, "apply")}) {
        for (const std::string &part : split_words(cut(text.value_or(""), kMaxValueBytes), ",")) {
            const std::size_t start = part.find_first_not_of("= \t:");
            if (start == std::string::npos)
                continue;
            const std::string command = part.substr(start);
            commands.push_back(command.substr(0, command.find('\n')));
        }
    }
    return commands;
}

// Gathers the actions of one API; 1 when the caller may not apply it.
int apply_param(Request &request, const Api &api, ApplyCache &cache, std::FILE *out)
{
    if (!api.applicable_by(request.mask))
        return 1;
    const std::string &name = api.name();
    if (name.find("__d") != std::string::npos)
        return 0;
    const std::vector<std::string> commands = commands_of(name);
    for (const std::string &command : commands)
        cache_command(cache, command, name);
    if (commands.empty())
        return 0;
    reply_value(out, name, api.shown(api.value()));
    qv_log_print(kLogNotice, "Apply %s=%s\n", name.c_str(), api.for_log(api.value()).c_str());
    notify_publish_on("apply", name, api.value(), api.is_secret() ? Secret::yes : Secret::no);
    return 0;
}

void run_cached(Request &request, const ApplyCache &cache, std::FILE *out)
{
    for (const CachedCommand &entry : cache) {
        int result = 0;
        afuncmap_apply_direct(request, "apply", entry.names.front(), entry.command, result);
        if (result != 0) {
            reply_value(out, entry.names.front(), API_E_APPLY_FAILED);
            qv_log_print(kLogWarning, "Can not apply %s\n", entry.names.front().c_str());
            continue;
        }
        for (const std::string &api : entry.names)
            qv_log_print(kLogDebug, "  with %s\n", api.c_str());
    }
}

void flush_file_systems()
{
    const Unlocked unlocked;
    sync();
}

} // namespace

int command_apply(Request &request, Args &argv, std::FILE *out)
{
    ApplyCache cache;
    const int result = for_each_flagged(
        argv, out, flag_apply_pending, [&](const Api &api) { return apply_param(request, api, cache, out); });
    if (cache.empty())
        return result;
    run_cached(request, cache, out);
    flush_file_systems();
    return result;
}

const CommandRecord applyRecord = {
    .name = "apply",
    .handler = command_apply,
    .summary = "Apply a parameter or group",
    .errors = "##Apply failed#",
};

} // namespace qvcd

#include "commands/stats.h"

#include "auth/session.h"
#include "base/command_lock.h"
#include "change/report.h"
#include "commands/cmd_table.h"
#include "commands/command_times.h"
#include "platform/counters.h"
#include "store/api.h"
#include "store/database.h"
#include "store/flags.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace qvcd {

namespace {

using Json = nlohmann::ordered_json;

constexpr double kNanosecond = 1e-9;

Json bounds()
{
    Json json = Json::array();
    for (const std::uint64_t bound : kTimeBounds)
        json.push_back(static_cast<double>(bound) / 1000);
    return json;
}

Json times_by_command()
{
    Json json = Json::object();
    for (std::size_t i = 0; i < cmd_map().size(); ++i) {
        const CommandTimes &times = command_times()[i];
        std::uint64_t count = 0;
        Json within = Json::array();
        for (const std::uint64_t more : times.counts)
            within.push_back(count += more);
        if (count == 0)
            continue;
        within.erase(kTimeBounds.size()); // all of them
        json[cmd_map()[i].record->name] = {{"count", count},
                                           {"seconds", static_cast<double>(times.nanoseconds) * kNanosecond},
                                           {"within", within}};
    }
    return json;
}

// The second number of the kernel's file is that of pages in memory.
std::int64_t resident_bytes()
{
    std::ifstream file("/proc/self/statm"); // of the machine that we run on, whatever the root is
    std::int64_t all = 0;
    std::int64_t resident = 0;
    file >> all >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

std::ptrdiff_t sessions()
{
    const Node all = sessionDB.find("Session");
    std::ptrdiff_t count = 0;
    for (Node session = all.first_child(); session; session = session.next())
        ++count;
    return count;
}

void add_pending(const Request &request, Json &json)
{
    int modified = 0;
    int unapplied = 0;
    for (const std::string &name : flagged_apis(metaDB.root(), "", flag_modified_or_unapplied)) {
        Api *api = find_api(name);
        if (!api || !api->visible_to(request.mask))
            continue;
        modified += api->is_raised(Api::Flag::mod) ? 1 : 0;
        unapplied += api->is_raised(Api::Flag::noapp) ? 1 : 0;
    }
    json["modified"] = modified;
    json["unapplied"] = unapplied;
}

int command_stats(Request &request, Args &, std::FILE *out)
{
    Json json = {{"commands", times_by_command()},
                 {"bounds", bounds()},
                 {"under_way", commands_under_way() - 1}, // this one does not count
                 {"sessions", sessions() - 1},            // nor does that of the machine itself
                 {"refused_logins", counters.refused_logins.load()},
                 {"saves", counters.saves.load()},
                 {"failed_saves", counters.failed_saves.load()},
                 {"lost_listeners", counters.lost_listeners.load()},
                 {"resident_bytes", resident_bytes()}};
    add_pending(request, json);
    reply_json(out, json);
    return 0;
}

} // namespace

const CommandRecord statsRecord = {
    .name = "stats",
    .handler = command_stats,
    .summary = "Tell what the daemon has done, in numbers",
    .synopsis = "stats",
    .return_values = "One line of JSON.",
    .description =
        "commands: of each command how often it ran since the start, the seconds that all of these took, and "
        "how many took no longer than each of bounds, which are seconds, too. "
        "under_way: commands that wait for scripts, devices or the disk. sessions: log-ins. refused_logins, "
        "saves and failed_saves (values), lost_listeners (who did not read events): since the start. "
        "resident_bytes: memory. modified and unapplied: APIs, of those that the caller may read, that are "
        "not "
        "saved and not applied.",
};

} // namespace qvcd

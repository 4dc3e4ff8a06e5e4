#include <cstdio>

#include "client/fleet/commands.h"
#include "client/fleet/table.h"

namespace qvcd::client::fleet {

namespace {

std::string uptime_text(const Member &member)
{
    constexpr long kMinute = 60;
    constexpr long kHour = 60 * kMinute;
    constexpr long kDay = 24 * kHour;
    if (!member.is_online() || !member.status.contains("uptime") ||
        !member.status["uptime"].is_number_integer())
        return "";
    const long seconds = member.status["uptime"].get<long>();
    return seconds >= kDay      ? std::to_string(seconds / kDay) + " d"
           : seconds >= kHour   ? std::to_string(seconds / kHour) + " h"
           : seconds >= kMinute ? std::to_string(seconds / kMinute) + " min"
                                : std::to_string(seconds) + " s";
}

std::string links_text(const Member &member)
{
    std::string text;
    const auto links = member.status.find("links");
    if (links == member.status.end() || !links->is_object())
        return text;
    for (const auto &[name, state] : links->items()) {
        if (state.is_string())
            text += (text.empty() ? "" : " ") + name + ":" + state.get<std::string>();
    }
    return text;
}

} // namespace

int run_list(Task &task, Arguments arguments)
{
    const Where where(arguments.value("--where"));
    arguments.rest("fleet list", 0, 0);
    std::vector<Row> rows{
        {"ID", "STATE", "LABEL", "MODEL", "VERSION", "REVISION", "UPTIME", "UNSAVED", "UNAPPLIED", "LINKS"}};
    for (const std::string &id : where.all(task.fleet)) {
        const Member &member = task.fleet.members().at(id);
        if (task.json) {
            print_json(member.status);
            continue;
        }
        rows.push_back({id, member.is_online() ? "online" : "offline", member.fact("label"),
                        member.fact("model"), member.fact("version"), member.fact("revision"),
                        uptime_text(member), member.fact("modified"), member.fact("unapplied"),
                        links_text(member)});
    }
    if (!task.json)
        print_table(rows);
    return 0;
}

} // namespace qvcd::client::fleet

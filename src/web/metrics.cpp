// What the daemon counts, and the numeric status values that the metadata marks, as Prometheus reads them.

#include "web/changes.h"
#include "web/handlers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

namespace qvcd::web {

namespace {

struct Row {
    const char *key; // of the daemon's stats
    const char *name;
    const char *type;
    const char *help;
};
constexpr Row kRows[] = {
    {"under_way", "qvcd_commands_waiting", "gauge", "Commands that wait for scripts, devices or the disk"},
    {"sessions", "qvcd_sessions", "gauge", "Sessions of users"},
    {"refused_logins", "qvcd_refused_logins_total", "counter", "Log-ins that were refused"},
    {"modified", "qvcd_unsaved_changes", "gauge", "Settings that were set and are not saved"},
    {"unapplied", "qvcd_unapplied_changes", "gauge", "Settings that were set and are not applied"},
    {"saves", "qvcd_saves_total", "counter", "Values that were written to their files"},
    {"failed_saves", "qvcd_failed_saves_total", "counter", "Values that could not be written to their files"},
    {"lost_listeners", "qvcd_lost_listeners_total", "counter",
     "Listeners that were dropped with their events"},
    {"resident_bytes", "qvcd_resident_memory_bytes", "gauge", "Memory of the daemon"},
};

constexpr std::string_view kReservedEndings[] = {"_total", "_count", "_sum", "_bucket", "_created", "_info"};

// "\" and newlines are escaped, in labels quotes too.
std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\n')
            result += "\\n";
        else if (c == '\\')
            result += "\\\\";
        else
            result += c;
    }
    return result;
}

void begin(std::string &text, const std::string &name, std::string_view type, std::string_view help)
{
    text += "# HELP " + name + " " + escaped(help) + "\n# TYPE " + name + " ";
    text.append(type).append("\n");
}

void add_commands(const Json &stats, std::string &text)
{
    begin(text, "qvcd_command_seconds", "histogram", "Commands that ran, and their time, waiting included");
    for (const auto &[command, times] : stats["commands"].items()) {
        const std::string label = "{command=\"" + command + "\"";
        const std::string count = times["count"].dump();
        const auto bucket = [&](const std::string &bound, const std::string &within) {
            text += "qvcd_command_seconds_bucket" + label + ",le=\"" + bound + "\"} " + within + "\n";
        };
        for (std::size_t i = 0; i < times["within"].size(); ++i)
            bucket(stats["bounds"].at(i).dump(), times["within"][i].dump());
        bucket("+Inf", count);
        text += "qvcd_command_seconds_sum" + label + "} " + times["seconds"].dump() + "\n";
        text += "qvcd_command_seconds_count" + label + "} " + count + "\n";
    }
}

// "VideoStreamer.Info.1.bitrate" as "qv_videostreamer_info_1_bitrate". Some endings say what type a metric
// is.
std::string metric_name(const std::string &api, bool is_counter)
{
    std::string name = "qv_";
    for (const char c : api)
        name += c == '.' ? '_' : c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (is_counter)
        return name.ends_with("_total") ? name : name + "_total";
    const auto is_end = [&](std::string_view ending) { return name.ends_with(ending); };
    return std::ranges::any_of(kReservedEndings, is_end) ? name + "_value" : name;
}

bool is_number(const std::string &value)
{
    double number = 0;
    const char *end = value.data() + value.size();
    return std::from_chars(value.data(), end, number).ptr == end && !value.empty() && std::isfinite(number);
}

// What is no number just now is left out.
void add_status(const Call &call, std::string &text)
{
    std::map<std::string, Json> apis;
    std::vector<std::string> names;
    for (const std::string &line : call.run({"describe"}).lines) {
        const Json api = Json::parse(line, nullptr, false);
        if (!api.is_object() || !api.contains("metric"))
            continue;
        names.push_back(api.value("name", ""));
        apis[names.back()] = api;
    }
    if (names.empty())
        return;
    std::set<std::string> said;
    for (const std::string &line :
         call.services.daemon.run_all(call.who, in_commands({"get"}, names)).lines) {
        const NamedValue value = named_value(line);
        const auto api = apis.find(value.name);
        if (api == apis.end() || !is_number(value.value))
            continue;
        const std::string type = api->second.value("metric", "");
        const std::string name = metric_name(value.name, type == "counter");
        if (!said.insert(name).second)
            continue;
        begin(text, name, type, api->second.value("help", value.name));
        text += name + " " + value.value + "\n";
    }
}

} // namespace

Answer metrics(Call &call)
{
    const Json stats = json_reply(call.run({"stats"}));
    std::string text;
    add_commands(stats, text);
    for (const Row &row : kRows) {
        begin(text, row.name, row.type, row.help);
        text += std::string(row.name) + " " + stats.value(row.key, Json(0)).dump() + "\n";
    }
    begin(text, "qvweb_sessions", "gauge", "Sessions of the gateway");
    text += "qvweb_sessions " + std::to_string(call.services.sessions.size()) + "\n";
    add_status(call, text);
    return {.type = "text/plain; version=0.0.4; charset=utf-8", .body = text};
}

} // namespace qvcd::web

#include "change/report.h"

#include "base/failures.h"
#include "base/reply.h"
#include "store/meta.h"

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

namespace qvcd {

using Json = nlohmann::ordered_json;

std::string line_of(const ActionRun &run)
{
    return run.status == 0 ? run.action : run.action + ": " + status_text(run.status);
}

void print_run(const std::string &front, const ActionRun &run, std::FILE *out)
{
    reply_line(out, front + line_of(run));
    for (const std::string &line : run.errors)
        reply_line(out, "    " + line);
}

Json json_of(const std::vector<ActionRun> &runs)
{
    Json list = Json::array();
    for (const ActionRun &run : runs) {
        list.push_back({{"action", run.action}, {"status", run.status}});
        if (!run.errors.empty())
            list.back()["output"] = run.errors;
    }
    return list;
}

Json json_of(const std::vector<ValueChange> &values)
{
    Json list = Json::array();
    for (const ValueChange &value : values)
        list.push_back({{"name", value.api}, {"old", value.before}, {"new", value.after}});
    return list;
}

std::string time_text(std::int64_t time)
{
    const std::time_t seconds = time;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

void reply_json(std::FILE *out, const Json &json)
{
    reply_line(out, json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void Report::print_text(std::FILE *out) const
{
    for (const ValueChange &value : values)
        reply_value(out, value.api, value.before + " -> " + value.after);
    for (const File &file : files) {
        reply_line(out, "--- " + file.file);
        reply_line(out, "+++ " + file.file);
        reply_text(out, file.diff);
    }
    for (const Refusal &refusal : errors)
        reply_value(out, refusal.api, refusal.error);
    for (const ActionRun &run : actions)
        print_run("apply: ", run, out);
    for (const ActionRun &run : undone)
        print_run("undo: ", run, out);
    if (!end.empty())
        reply_value(out, entry_name + ".end", end);
    if (entry >= 0)
        reply_value(out, entry_name, std::to_string(entry));
    if (left)
        reply_value(out, "Commit.seconds", std::to_string(left->count()));
    if (!problem.empty())
        reply_value(out, "History", "##" + problem + "#");
}

void Report::print_json(std::FILE *out) const
{
    Json json = {{"values", json_of(values)}};
    if (!files.empty()) {
        for (const File &file : files)
            json["files"].push_back({{"file", file.file}, {"diff", file.diff}});
    }
    json["actions"] = json_of(actions);
    if (!undone.empty())
        json["undone"] = json_of(undone);
    for (const Refusal &refusal : errors)
        json["errors"].push_back({{"name", refusal.api}, {"error", refusal.error}});
    if (!end.empty())
        json["end"] = end;
    if (entry >= 0)
        json["entry"] = entry;
    if (left)
        json["seconds"] = left->count();
    if (!problem.empty())
        json["problem"] = problem;
    reply_json(out, json);
}

ValueChange shown_change(const Proposed &p)
{
    return value_change(p.api, p.before, p.after, p.secret || p.hidden);
}

} // namespace qvcd

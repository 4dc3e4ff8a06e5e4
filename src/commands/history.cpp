#include "commands/history.h"

#include "base/reply.h"
#include "base/text.h"
#include "change/commit.h"
#include "change/history.h"
#include "commands/commit.h"
#include "commands/option_words.h"
#include "funcs/check_map.h"
#include "platform/api_errors.h"
#include "store/api.h"
#include "store/database.h"
#include "store/names.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>

namespace qvcd {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::int64_t kUsualEntries = 20;

// ---- history ----

// What is gone is shown to administrators.
bool may_see(const Request &request, const std::string &api)
{
    const MetaApi meta(api);
    return meta ? meta.visible_to(request.mask) : (request.mask & kLevel1Bits) != 0;
}

// Leaves what the caller may see. False when nothing of the entry is for him.
bool show_to(const Request &request, HistoryEntry &entry)
{
    if (entry.values.empty())
        return (request.mask & kLevel1Bits) != 0;
    std::erase_if(entry.values, [&](const ValueChange &value) { return !may_see(request, value.api); });
    for (ValueChange &value : entry.values) { // it may have become one since
        if (MetaApi(value.api).is_secret())
            value = value_change(std::move(value.api), value.before, value.after, true);
    }
    return !entry.values.empty();
}

void print_text(const HistoryEntry &entry, std::FILE *out)
{
    constexpr char kIndent[] = "    ";
    reply_line(out, std::to_string(entry.number) + " " + time_text(entry.time) + " " + entry.user + " (" +
                        entry.source + (entry.client.empty() ? "" : ", " + entry.client) + ") " +
                        entry.command + ": " + entry.end);
    if (!entry.text.empty())
        reply_line(out, kIndent + ("\"" + entry.text + "\""));
    for (const ValueChange &value : entry.values)
        reply_line(out, kIndent + value.api + "=" + value.before + " -> " + value.after);
    if (entry.more_values != 0)
        reply_line(out, kIndent + std::to_string(entry.more_values) + " more values");
    for (const ActionRun &run : entry.actions)
        print_run(std::string(kIndent) + "apply: ", run, out);
}

Json json_of(const HistoryEntry &entry)
{
    return {{"number", entry.number},
            {"time", time_text(entry.time)},
            {"user", entry.user},
            {"source", entry.source},
            {"client", entry.client},
            {"command", entry.command},
            {"text", entry.text},
            {"end", entry.end},
            {"values", json_of(entry.values)},
            {"actions", json_of(entry.actions)},
            {"more_values", entry.more_values}};
}

int refuse(std::FILE *out, std::string_view error)
{
    reply_line(out, error);
    return 1;
}

std::string problem_text(const std::string &problem)
{
    return "##" + problem + "#";
}

int command_history(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "j", "n");
    const auto count = parse_int64(options.value('n').value_or(std::to_string(kUsualEntries)));
    if (!options.good() || !count || *count < 1)
        return refuse(out, API_E_INVALID_CMD_ARGS);
    const bool sees_all = (request.mask & kLevel1Bits) != 0;
    const auto wanted = static_cast<std::size_t>(*count);
    std::vector<HistoryEntry> entries;
    const std::string problem = history_visit(argv, [&](const HistoryEntry &entry) {
        entries.push_back(entry);
        return !sees_all || entries.size() < wanted;
    });
    if (!problem.empty())
        return refuse(out, problem_text(problem));
    std::erase_if(entries, [&](HistoryEntry &entry) { return !show_to(request, entry); });
    entries.resize(std::min(entries.size(), wanted));
    if (!options.has('j')) {
        for (const HistoryEntry &entry : entries)
            print_text(entry, out);
        return 0;
    }
    Json json = {{"entries", Json::array()}};
    for (const HistoryEntry &entry : entries)
        json["entries"].push_back(json_of(entry));
    reply_json(out, json);
    return 0;
}

// ---- rollback ----

// What was undone by itself, and that it was, come to nothing together.
bool counts(const HistoryEntry &entry)
{
    return !entry.values.empty() && !entry.end.starts_with("undone") && !entry.key.ends_with("-undone");
}

// The values from before one entry.
struct Target {
    std::int64_t number = 0; // 0: there is no such entry
    std::map<std::string, ValueChange> values;
    std::vector<std::int64_t> cut; // entries that do not have all their values
};

// `number`: of an entry; or -N: the Nth that counts, from the newest on.
std::string find_target(std::int64_t number, Target &target)
{
    std::int64_t counted = 0;
    return history_visit({}, [&](const HistoryEntry &entry) {
        if (number > 0 && entry.number < number)
            return false;
        if (entry.number == number)
            target.number = number;
        if (!counts(entry))
            return target.number == 0;
        for (const ValueChange &value : entry.values)
            target.values[value.api] = value;
        if (entry.more_values != 0)
            target.cut.push_back(entry.number);
        if (number < 0 && --counted == number)
            target.number = entry.number;
        return target.number == 0;
    });
}

// The values as assignments; what cannot be brought back is said in the report.
Args assignments_of(const Target &target, Report &report)
{
    Args assignments;
    for (const std::int64_t number : target.cut)
        report.errors.push_back({"Entry." + std::to_string(number), "##Not all of its values are known#"});
    for (const auto &[api, value] : target.values) {
        Api *known = find_api(api);
        if (!known)
            report.errors.push_back({api, API_E_PARAM_NOT_FOUND});
        else if (value.secret)
            report.errors.push_back({api, "##Passwords are not kept#"});
        else if (const auto error = cfuncmap_check(*known, value.before);
                 error && value.before != known->fallback())
            report.errors.push_back({api, *error}); // its type is another one now
        else
            assignments.push_back(api + "=" + url_escape(value.before));
    }
    return assignments;
}

int command_rollback(Request &request, Args &argv, std::FILE *out)
{
    const OptionWords options(argv, "jn", "cm");
    const std::int64_t number = argv.size() == 1 ? parse_int64(argv.front()).value_or(0) : 0;
    std::optional<CommitOrder> order = commit_order(options);
    if (!order || number == 0)
        return refuse(out, API_E_INVALID_CMD_ARGS);
    Target target;
    if (const std::string problem = find_target(number, target); !problem.empty())
        return refuse(out, problem_text(problem));
    if (target.number == 0)
        return refuse(out, "##No such entry#");
    Report report;
    report.entry_name = "Rollback";
    order->command = "rollback";
    order->check = Check::had_it;
    order->assignments = assignments_of(target, report);
    const std::string text = "to before " + std::to_string(target.number);
    order->text = order->text.empty() ? text : text + ": " + order->text;
    if (order->assignments.empty())
        return print_end(report, 0, options.has('j'), out);
    return carry_out(request, *order, report, options.has('j'), out);
}

} // namespace

void add_to_history(const Request &request, const char *command, const std::string &text, int result,
                    std::FILE *out)
{
    ChangeNotes &notes = *request.notes;
    std::erase_if(notes.values, [](const ValueChange &v) { return !v.secret && v.before == v.after; });
    if (!notes.happened && notes.values.empty() && notes.actions.empty())
        return;
    for (ValueChange &value : notes.values)
        value = value_change(std::move(value.api), value.before, value.after, value.secret);
    const HistoryResult added = history_add({.time = std::time(nullptr),
                                             .user = request.caller.user,
                                             .source = request.caller.source,
                                             .client = request.caller.client,
                                             .command = command,
                                             .text = text,
                                             .end = result == 0 ? "done" : "failed",
                                             .values = std::move(notes.values),
                                             .actions = std::move(notes.actions)});
    if (!added.problem.empty())
        reply_value(out, "History", problem_text(added.problem));
}

const CommandRecord historyRecord = {
    .name = "history",
    .handler = command_history,
    .summary = "Show who changed what",
    .synopsis = "history [-j] [-n <count>] [<API or group> ...]",
    .errors = "##...#: the history cannot be read; the text says why. The result is 1.",
    .description =
        "Lists the newest 20 changes, or as many as -n says, newest first: number, time (UTC), user, where "
        "he "
        "came from, the client's name, the command and how it ended; then what was said about it, the values "
        "with their old and new ones, and the actions that ran. With names only changes of these APIs, or "
        "below these groups. What the caller may not read is left out. Passwords are hidden, and kept "
        "nowhere. -j gives one line of JSON.",
};

const CommandRecord rollbackRecord = {
    .name = "rollback",
    .handler = command_rollback,
    .summary = "Bring back the values from before a change",
    .synopsis = "rollback [-j] [-n] [-c <seconds>] [-m <text>] <number>|-1",
    .errors =
        "##No such entry#: the history does not reach back so far.\n"
        "<API>=##Parameter not found#, ##Passwords are not kept#, or what is wrong with its old value: it is "
        "passed over.\n"
        "Others are those of commit, and the result is 1.",
    .description =
        "Undoes an entry of the history and all that came after it: the APIs get the values from before. -1 "
        "is the last change of values, -2 the one before. It is a commit, an entry of the history like "
        "others, "
        "and takes the same options.",
    .recorded = ChangeNotes::Level::all,
};

} // namespace qvcd

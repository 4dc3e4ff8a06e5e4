// Changes as a whole: what waits, plan, commit, history.

#include "web/changes.h"

#include "web/handlers.h"
#include "web/names.h"
#include "web/types.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace qvcd::web {

namespace {

constexpr char kNoPermission[] = "Invalid permission";
constexpr char kNotFound[] = "Parameter not found";
constexpr char kCommit[] = "Commit"; // errors that are of no value

std::string time_text(std::time_t time)
{
    std::tm utc{};
    ::gmtime_r(&time, &utc);
    char text[32] = "";
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

// "values" of a report, with the values as what they are.
Json changes_in(const Call &call, const Json &report)
{
    std::vector<NamedValue> before;
    std::vector<NamedValue> after;
    for (const Json &value : report.value("values", Json::array())) {
        before.push_back({value.value("name", ""), value.value("old", ""), std::nullopt});
        after.push_back({value.value("name", ""), value.value("new", ""), std::nullopt});
    }
    const Json from = call.services.types.typed(call.who, before);
    const Json to = call.services.types.typed(call.who, after);
    Json changes = Json::array();
    for (const NamedValue &value : after)
        changes.push_back({{"name", value.name}, {"from", from[value.name]}, {"to", to[value.name]}});
    return changes;
}

std::vector<FieldError> errors_in(const Json &report)
{
    std::vector<FieldError> errors;
    for (const Json &error : report.value("errors", Json::array()))
        errors.push_back({error.value("name", ""), plain_error(error.value("error", ""))});
    return errors;
}

// What a change has done, or would do.
Json outcome_of(const Call &call, const Json &report)
{
    Json json = {{"changes", changes_in(call, report)}, {"actions", report.value("actions", Json::array())}};
    if (report.contains("undone"))
        json["undone"] = report["undone"];
    if (report.contains("problem"))
        json["problem"] = report["problem"];
    if (report.contains("entry")) {
        Json commit = {{"number", report["entry"]}, {"state", report.value("end", "done")}};
        if (report.contains("seconds")) {
            commit["state"] = "awaiting";
            commit["seconds_left"] = report["seconds"];
            commit["deadline"] = time_text(std::time(nullptr) + report["seconds"].get<long>());
        }
        json["commit"] = std::move(commit);
    }
    return json;
}

[[noreturn]] void refuse(const Call &call, const Json &report, const std::vector<FieldError> &errors)
{
    const bool is_state = errors.front().name == kCommit;
    throw Problem{.status = is_state && errors.front().detail != kNoPermission ? 409 : status_of(errors),
                  .detail = errors.front().detail,
                  .name = is_state ? "" : errors.front().name,
                  .errors = is_state ? std::vector<FieldError>() : errors,
                  .more = text_of(outcome_of(call, report))};
}

Answer answer_of_report(const Call &call, const Reply &reply)
{
    const Json report = json_reply(reply);
    if (const auto errors = errors_in(report); !errors.empty())
        refuse(call, report, errors);
    return answer_of(outcome_of(call, report));
}

// "confirm" and "message" of the body.
void add_options(const Json &body, Words &words)
{
    if (const auto seconds = number_in(body, "confirm")) {
        if (*seconds < 1 || *seconds > 86'400)
            throw Problem{422, "confirm has to be 1 to 86400 seconds", "confirm"};
        words.insert(words.end(), {"-c", std::to_string(*seconds)});
    }
    if (const auto text = text_in(body, "message"); text && !text->empty())
        words.insert(words.end(), {"-m", *text});
}

Answer run_on_names(Call &call, const std::string &command)
{
    const std::vector<std::string> names = names_in(object_in(call.request), "names");
    Json done = Json::array();
    Json errors = Json::array();
    const Reply reply = call.services.daemon.run_all(call.who, in_commands({command}, names));
    for (const std::string &line : reply.lines) {
        const NamedValue value = named_value(line);
        if (value.error)
            errors.push_back({{"name", value.name}, {"detail", *value.error}});
        else if (!value.name.empty())
            done.push_back(value.name);
    }
    return answer_of({{"done", done}, {"errors", errors}});
}

// What awaits confirmation, as the daemon tells it; null: nothing does.
Json unconfirmed(const Call &call, const Json &commit)
{
    if (!commit.contains("entry"))
        return nullptr;
    const long seconds = commit.value("seconds", 0L);
    const std::string user = commit.value("user", "");
    return {{"number", commit["entry"]},
            {"user", user},
            {"client", commit.value("client", "")},
            {"since", commit.value("since", "")},
            {"text", commit.value("text", "")},
            {"deadline", time_text(std::time(nullptr) + seconds)},
            {"seconds_left", seconds},
            {"own", user == call.who.user}};
}

// A value that is known, as what it is.
Json typed(const Call &call, const std::string &name, const Json &text)
{
    if (!text.is_string())
        return nullptr;
    return call.services.types.typed(call.who, {{name, text.get<std::string>(), std::nullopt}})[name];
}

Json history_entry(const Call &call, const Json &entry)
{
    Json json = {{"number", entry["number"]},
                 {"time", entry["time"]},
                 {"user", entry["user"]},
                 {"source", entry.value("source", "")},
                 {"client", entry.value("client", "")},
                 {"command", entry.value("command", "")},
                 {"text", entry.value("text", "")},
                 {"state", entry.value("end", "")},
                 {"changes", changes_in(call, entry)},
                 {"actions", entry.value("actions", Json::array())},
                 {"more_changes", entry.value("more_values", 0)}};
    return json;
}

} // namespace

std::vector<Words> in_commands(const Words &command, const std::vector<std::string> &arguments)
{
    std::vector<Words> commands = {command};
    std::size_t room = kMostNames;
    for (const std::string &argument : arguments) {
        if (room-- == 0) {
            commands.push_back(command);
            room = kMostNames - 1;
        }
        commands.back().push_back(argument);
    }
    return commands;
}

std::string text_of_value(const std::string &name, const Json &value)
{
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_boolean())
        return value.get<bool>() ? "1" : "0";
    if (value.is_number())
        return value.dump();
    throw Problem{422, "a value is a text, a number, true, false or null", name};
}

int status_of(const std::vector<FieldError> &errors)
{
    const auto all_are = [&](const char *text) {
        return std::ranges::all_of(errors, [&](const FieldError &e) { return e.detail == text; });
    };
    return all_are(kNoPermission) ? 403 : all_are(kNotFound) ? 404 : 422;
}

std::string plain_error(const std::string &text)
{
    return named_value(text).error.value_or(text);
}

Json json_reply(const Reply &reply)
{
    Json json = Json::parse(reply.first(), nullptr, false);
    if (json.is_discarded() || !json.is_structured())
        throw Problem{422, reply.lines.empty() ? "Invalid permission" : plain_error(reply.first())};
    return json;
}

Answer commit_values(const Call &call, const Json &body, const std::vector<std::string> &assignments)
{
    Words words = {"commit", "-j"};
    add_options(body, words);
    if (truth_in(body, "all").value_or(false))
        words.emplace_back("-a");
    words.insert(words.end(), assignments.begin(), assignments.end());
    return answer_of_report(call, call.run(words));
}

Answer commit(Call &call)
{
    const Json body = object_in(call.request);
    return commit_values(call, body, assignments_in(call, body));
}

Answer confirm(Call &call)
{
    const Json body = object_in(call.request);
    Words words = {"confirm", "-j"};
    if (const auto seconds = number_in(body, "seconds"))
        words.insert(words.end(), {"-c", std::to_string(*seconds)});
    if (const auto number = number_in(body, "number"))
        words.push_back(std::to_string(*number));
    return answer_of_report(call, call.run(words));
}

Answer abort_commit(Call &call)
{
    Words words = {"abort", "-j"};
    if (const auto number = number_in(object_in(call.request), "number"))
        words.push_back(std::to_string(*number));
    return answer_of_report(call, call.run(words));
}

Answer plan(Call &call)
{
    const Json body = object_in(call.request);
    Words words = {"plan", "-j"};
    if (truth_in(body, "all").value_or(false))
        words.emplace_back("-a");
    const std::vector<std::string> assignments = assignments_in(call, body);
    words.insert(words.end(), assignments.begin(), assignments.end());
    const Json report = json_reply(call.run(words));
    Json json = outcome_of(call, report);
    json["files"] = Json::array();
    for (const Json &file : report.value("files", Json::array()))
        json["files"].push_back({{"path", file["file"]}, {"diff", file["diff"]}});
    if (const auto errors = errors_in(report); !errors.empty())
        refuse(call, report, errors);
    return answer_of(json);
}

Answer diff(Call &call)
{
    const std::string against = asked(call.request, "against");
    if (!against.empty() && against != "saved" && against != "default" && against != "running")
        throw Problem{400, "against has to be saved, default or running", "against"};
    Words words = {"diff", "-j", against.empty() ? "saved" : against};
    for (const std::string &name : asked_names(call.request))
        words.push_back(name);
    const Json report = json_reply(call.run(words));
    if (const auto errors = errors_in(report); !errors.empty())
        refuse(call, report, errors);
    return answer_of({{"differences", changes_in(call, report)}});
}

Answer save(Call &call)
{
    return run_on_names(call, "save");
}

Answer apply(Call &call)
{
    return run_on_names(call, "apply");
}

Answer revert(Call &call)
{
    return run_on_names(call, "revert");
}

Answer state(Call &call)
{
    Words words = {"pending"};
    for (const std::string &name : asked_names(call.request))
        words.push_back(name);
    std::vector<Words> commands = {words, {"commit", "-j", "-s"}};
    if (Words signs = call.services.types.restart_signs(call.who); !signs.empty()) {
        signs.insert(signs.begin(), "get");
        commands.push_back(std::move(signs));
    }
    const Reply reply = call.services.daemon.run_all(call.who, commands);
    Json json = {{"modified", Json::object()}, {"unapplied", Json::object()}, {"own", Json::array()},
                 {"others", Json::object()},   {"commit", nullptr},           {"restart", Json::array()}};
    for (const std::string &line : reply.lines) {
        const Json part = Json::parse(line, nullptr, false);
        if (part.is_object())
            json["commit"] = unconfirmed(call, part);
        if (const NamedValue value = named_value(line); value.value == kRestartNeeded)
            json["restart"].push_back(value.name);
        for (const Json &change : part.is_array() ? part : Json::array()) {
            const std::string name = change.value("name", "");
            if (change.contains("saved"))
                json["modified"][name] = typed(call, name, change["saved"]);
            if (change.contains("applied"))
                json["unapplied"][name] = typed(call, name, change["applied"]);
            if (change.value("own", false))
                json["own"].push_back(name);
            else
                json["others"][name] = change.value("user", "");
        }
    }
    return answer_of(json);
}

Answer history(Call &call)
{
    Words words = {"history", "-j", "-n", std::to_string(asked_number(call.request, "limit", 20, 1, 10'000))};
    for (const std::string &name : asked_names(call.request))
        words.push_back(name);
    Json entries = Json::array();
    for (const Json &entry : json_reply(call.run(words)).value("entries", Json::array()))
        entries.push_back(history_entry(call, entry));
    return answer_of({{"entries", entries}});
}

Answer roll_back(Call &call)
{
    const Json body = object_in(call.request);
    const auto number = number_in(body, "number");
    if (!number)
        throw Problem{422, "number is missing", "number"};
    Words words = {"rollback", "-j"};
    add_options(body, words);
    words.push_back(std::to_string(*number));
    return answer_of_report(call, call.run(words));
}

} // namespace qvcd::web

// Presets, profiles, users, and documents: what the daemon keeps beside the settings.

#include "web/changes.h"
#include "web/handlers.h"
#include "web/names.h"
#include "web/types.h"

#include <algorithm>
#include <charconv>

namespace qvcd::web {

namespace {

// The values of a reply; an error in place of one ends the request.
std::vector<NamedValue> good_values(const Reply &reply)
{
    std::vector<NamedValue> values;
    for (const std::string &line : reply.lines) {
        NamedValue value = named_value(line);
        if (value.error) {
            const bool is_missing = value.error->ends_with("not found") ||
                                    *value.error == "Invalid preset number" ||
                                    value.error->starts_with("Can not get preset");
            throw Problem{value.error == "Invalid permission" ? 403 : is_missing ? 404 : 422, *value.error};
        }
        if (!value.name.empty())
            values.push_back(std::move(value));
    }
    return values;
}

// The same of a command that says nothing to who may not run it.
std::vector<NamedValue> wanted_values(const Reply &reply)
{
    std::vector<NamedValue> values = good_values(reply);
    if (reply.lines.empty())
        throw Problem{403, "Invalid permission"};
    return values;
}

// "Preset.1.Config.name" in pieces: what is between the first dot and the second, and what is behind it.
std::pair<std::string, std::string> key_and_rest(const std::string &name)
{
    const std::size_t first = std::min(name.find('.'), name.size() - 1) + 1;
    const std::size_t second = std::min(name.find('.', first), name.size());
    return {name.substr(first, second - first), name.substr(std::min(second + 1, name.size()))};
}

std::string preset_number(const Call &call)
{
    const std::string &text = call.tail;
    if (text.empty() || text.size() > 3 ||
        !std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; }))
        throw Problem{404, "Invalid preset number"};
    return text;
}

// What is a word on the wire as it stands.
const std::string &word(const std::string &text, const char *what)
{
    const bool is_bad = std::ranges::any_of(text, [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == 0x7f || c == ',' || c == '=';
    });
    if (text.empty() || is_bad)
        throw Problem{422, std::string("this is no name of a ") + what};
    return text;
}

Json typed(const Call &call, const std::vector<NamedValue> &values)
{
    return call.services.types.typed(call.who, values);
}

} // namespace

// ---- Presets ----

// What "preset.info" says of all; an appliance need not have any.
std::vector<NamedValue> all_presets(Call &call)
{
    const Reply reply = call.run({"preset.info"});
    const bool there_are_none =
        reply.lines.size() == 1 && named_value(reply.lines.front()).error == "Can not get preset";
    return there_are_none ? std::vector<NamedValue>() : wanted_values(reply);
}

Answer list_presets(Call &call)
{
    Json json = {{"current", nullptr}, {"presets", Json::array()}};
    for (const NamedValue &value : all_presets(call)) {
        const auto [key, rest] = key_and_rest(value.name);
        if (key == "Current") {
            json["current"][rest] = value.value;
            continue;
        }
        Json &presets = json["presets"];
        if (presets.empty() || presets.back()["number"] != std::stoi(key))
            presets.push_back({{"number", std::stoi(key)}});
        presets.back()[rest.substr(rest.rfind('.') + 1)] = value.value;
    }
    if (json["current"].is_object())
        json["current"]["number"] = std::stoi(json["current"].value("number", "0"));
    return answer_of(json);
}

Answer show_preset(Call &call)
{
    const std::string number = preset_number(call);
    Json json = {{"number", std::stoi(number)}};
    std::vector<NamedValue> values;
    for (NamedValue &value : wanted_values(call.run({"preset.get", number}))) {
        value.name = key_and_rest(value.name).second;
        if (value.name == "Config.name" || value.name == "Config.desc")
            json[value.name.substr(7)] = value.value;
        else
            values.push_back(std::move(value));
    }
    json["values"] = typed(call, values);
    return answer_of(json);
}

Answer load_preset(Call &call)
{
    const bool applies = truth_in(object_in(call.request), "apply").value_or(false);
    const std::string command = applies ? "preset.load_apply" : "preset.load";
    return answer_of({{"values", typed(call, wanted_values(call.run({command, preset_number(call)})))}});
}

// A document of the two alone leaves the values alone.
Answer name_preset(Call &call)
{
    const std::string number = preset_number(call);
    const Json body = object_in(call.request);
    std::string document;
    for (const char *field : {"name", "desc"}) {
        const auto text = text_in(body, field);
        if (text && std::ranges::any_of(*text, [](char c) { return static_cast<unsigned char>(c) < ' '; }))
            throw Problem{422, "a name and a description have one line", field};
        if (text)
            document += "Preset." + number + ".Config." + field + " = " + *text + "\n";
    }
    if (document.empty())
        throw Problem{422, "name or desc is missing"};
    wanted_values(call.run({"preset.get", number}));
    good_values(call.services.daemon.run_with_document(call.who, {"preset.import", "-"}, document));
    return show_preset(call);
}

Answer store_preset(Call &call)
{
    wanted_values(call.run({"preset.store", preset_number(call)}));
    return show_preset(call);
}

// ---- Profiles ----

Answer list_profiles(Call &call)
{
    Json json = {{"current", ""}, {"profiles", Json::array()}};
    for (const NamedValue &value : wanted_values(call.run({"profile.list"}))) {
        if (value.name == "Profile.current")
            json["current"] = value.value;
        else if (value.name.ends_with(".name"))
            json["profiles"].push_back({{"name", value.value}});
        else if (value.name.ends_with(".group") && !json["profiles"].empty())
            json["profiles"].back()["group"] = value.value;
    }
    return answer_of(json);
}

Answer show_profile(Call &call)
{
    const Reply reply = call.run({"profile.read", call.tail});
    return answer_of({{"name", call.tail}, {"values", typed(call, good_values(reply))}});
}

Answer load_profile(Call &call)
{
    wanted_values(call.run({"profile.load", call.tail}));
    return answer_of({{"name", call.tail}});
}

Answer save_profile(Call &call)
{
    const Json body = object_in(call.request);
    if (const auto from = text_in(body, "from")) {
        wanted_values(call.run({"profile.copy", word(*from, "profile"), word(call.tail, "profile")}));
        return answer_of({{"name", call.tail}});
    }
    Words words = {"profile.save", word(call.tail, "profile")};
    for (const std::string &name : names_in(body, "names"))
        words.push_back(name);
    wanted_values(call.run(words));
    return answer_of({{"name", call.tail}});
}

Answer remove_profile(Call &call)
{
    wanted_values(call.run({"profile.remove", call.tail}));
    return {.status = 204};
}

// ---- Users ----

// Passwords stay where they are.
Answer list_users(Call &call)
{
    Json json = {{"users", Json::array()}, {"groups", Json::array()}};
    const Reply reply = call.services.daemon.run_all(call.who, {{"user.list"}, {"group.list"}});
    for (const NamedValue &value : wanted_values(reply)) {
        const auto [key, rest] = key_and_rest(value.name);
        if (rest == "group")
            json["users"].push_back({{"name", key}, {"group", value.value}});
        else if (rest == "perm")
            json["groups"].push_back({{"group", key}, {"rights", value.value}});
    }
    return answer_of(json);
}

// Makes the user where there is none; both in one go, so that nobody is left without a password unseen.
Answer put_user(Call &call)
{
    const std::string &user = word(call.tail, "user");
    const Json body = object_in(call.request);
    const auto group = text_in(body, "group");
    const auto password = text_in(body, "password");
    if (!group && !password)
        throw Problem{422, "group or password is missing"};
    const std::vector<NamedValue> known = wanted_values(call.run({"user.list"}));
    const bool exists =
        std::ranges::any_of(known, [&](const NamedValue &v) { return v.name == "User." + user + ".group"; });
    if (!exists && (!group || !password))
        throw Problem{404, "there is no such user; a new one needs group and password"};
    Words words = {exists ? "user.mod" : "user.add", user};
    if (group)
        words.push_back(word(*group, "group"));
    else
        words.front() = "user.passwd";
    if (password)
        words.push_back(*password);
    wanted_values(call.run(words));
    return answer_of({{"name", user}}, exists ? 200 : 201);
}

Answer remove_user(Call &call)
{
    wanted_values(call.run({"user.rem", word(call.tail, "user")}));
    return {.status = 204};
}

// ---- Documents ----

namespace {

// ": line 7: ..." of "##Import failed#: line 7: ...".
std::string value_behind(const std::string &line)
{
    const std::size_t end = line.find('#', 2);
    return end == std::string::npos ? "" : line.substr(end + 1);
}

// The words of a command that gives, or takes, the document that "what" of the query means.
Words document_command(const Call &call, const char *action)
{
    const std::string what = asked(call.request, "what");
    const std::string profile = asked(call.request, "profile");
    if (what == "profile")
        return {std::string("profile.") + action, word(profile, "profile"), "-"};
    if (what == "presets")
        return {std::string("preset.") + action, "-"};
    if (!what.empty() && what != "settings")
        throw Problem{400, "what has to be settings, presets or profile", "what"};
    return {action, "-", std::to_string(asked_number(call.request, "mode", 0, 0, 3))};
}

} // namespace

Answer export_document(Call &call)
{
    Words words = document_command(call, "export");
    const std::string what = words.front() == "export" ? "settings" : asked(call.request, "what");
    if (words.front() == "export") {
        for (const std::string &name : asked_names(call.request))
            words.push_back(name);
    }
    const Reply reply = call.run(words);
    if (reply.lines.size() == 1)
        good_values(reply);
    if (reply.lines.empty() && what == "presets") // there are none, or he may not see them
        all_presets(call);
    if (reply.lines.empty() && reply.result != 0)
        throw Problem{403, "Invalid permission"};
    Answer answer{.type = "text/plain; charset=utf-8",
                  .headers = {{"Content-Disposition", "attachment; filename=\"" + what + ".hdf\""}}};
    for (const std::string &line : reply.lines)
        answer.body += line + "\n";
    return answer;
}

Answer import_document(Call &call)
{
    if (call.request.body.empty())
        throw Problem{422, "there is no document in the body"};
    const Words words = document_command(call, "import");
    const Reply reply = call.services.daemon.run_with_document(call.who, words, call.request.body);
    Json values = Json::array();
    Json errors = Json::array();
    for (const std::string &line : reply.lines) {
        const NamedValue value = named_value(line);
        if (value.name.empty() && value.error)
            throw Problem{*value.error == "Invalid permission" ? 403 : 422,
                          *value.error + value_behind(line)};
        if (value.error)
            errors.push_back({{"name", value.name}, {"detail", *value.error}});
        else if (!value.name.empty())
            values.push_back(value.name);
    }
    return answer_of({{"done", values}, {"errors", errors}});
}

} // namespace qvcd::web

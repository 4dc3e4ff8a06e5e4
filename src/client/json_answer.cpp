#include "client/json_answer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "client/advice.h"
#include "client/nested_text.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"
#include "qvclient/reply.h"
#include "qvclient/typed_value.h"

namespace qvcd::client {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostNames = 99; // that one command takes

bool is_name(std::string_view name)
{
    return !name.empty() && name.find_first_of(" ,\t=%") == std::string_view::npos;
}

// Of what `introspect` says beside the type: "NAME.default" and the like.
std::map<std::string, std::string> types_of_fields(const std::vector<std::string> &lines)
{
    std::map<std::string, std::string> types;
    for (const std::string &line : lines) {
        constexpr std::string_view kType = ".type";
        const ReplyLine parts = parse_reply_line(line);
        if (!parts.name.ends_with(kType))
            continue;
        const std::string name(parts.name.substr(0, parts.name.size() - kType.size()));
        const bool is_real = parts.value.find("float") != std::string_view::npos;
        for (const char *field : {".default", ".value"})
            types[name + field] = parts.value;
        for (const char *field : {".min", ".max"})
            types[name + field] = is_real ? "float" : "signed_integer";
    }
    return types;
}

// The setting that a name of a reply speaks of: "A.port" for "Preset.1.A.port".
std::string setting_of(std::string_view command, const std::string &name)
{
    const std::size_t number = command.starts_with("preset") ? name.find('.') : std::string::npos;
    const std::size_t end = number == std::string::npos ? number : name.find('.', number + 1);
    return end == std::string::npos ? name : name.substr(end + 1);
}

// By the names that the reply has.
std::map<std::string, std::string> types_in(const Options &options, const std::string &command,
                                            const std::vector<std::string> &lines,
                                            const std::vector<std::string> &names)
{
    if (command == "login" || command == "get_session")
        return {{"Session", "integer"}, {"session", "integer"}, {"group", "integer"}};
    std::map<std::string, std::string> types;
    if (command == "introspect" || command == "geti")
        types = types_of_fields(lines);
    if (command == "introspect")
        return types;
    std::vector<std::string> settings;
    for (const std::string &name : names)
        settings.push_back(setting_of(command, name));
    const std::map<std::string, std::string> of_settings = types_of(options, settings);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (const auto type = of_settings.find(settings[i]); type != of_settings.end())
            types.emplace(names[i], type->second);
    }
    return types;
}

} // namespace

std::map<std::string, std::string> types_of(const Options &options, const std::vector<std::string> &names)
{
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i % kMostNames == 0)
            lines.emplace_back("introspect");
        lines.back() += " " + names[i];
    }
    std::map<std::string, std::string> types;
    if (lines.empty())
        return types;
    ask(options.endpoint, options.session, lines, options.limits("introspect"), [&](std::string_view line) {
        constexpr std::string_view kType = ".type";
        const ReplyLine parts = parse_reply_line(line);
        if (parts.name.ends_with(kType))
            types.try_emplace(std::string(parts.name.substr(0, parts.name.size() - kType.size())),
                              parts.value);
    });
    return types;
}

void add_errors(Json &json, const Options &options, const Words &words, const std::vector<std::string> &lines,
                int result)
{
    for (const std::string &line : lines) {
        const ReplyLine parts = parse_reply_line(line);
        if (parts.error)
            json["errors"].push_back({{"name", parts.name}, {"error", *parts.error}});
    }
    const std::string reason = lines.empty() ? reason_of_silence(options, words, result) : "";
    if (!reason.empty())
        json["errors"].push_back({{"name", ""}, {"error", reason}});
}

std::string one_json_line(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string json_answer(const Options &options, const Words &words, const std::vector<std::string> &lines,
                        int result)
{
    std::vector<std::string> names;
    std::set<std::string_view> seen;
    for (const std::string &line : lines) {
        const ReplyLine parts = parse_reply_line(line);
        if (is_name(parts.name) && !says_error(words[0], result, line) && seen.insert(parts.name).second)
            names.emplace_back(parts.name);
    }
    const std::map<std::string, std::string> types = types_in(options, words[0], lines, names);
    Json json = {{"command", words[0]}, {"result", result}, {"values", Json::object()}};
    if (names.empty()) {
        if (auto tree = parse_nested(lines)) {
            json["tree"] = std::move(*tree);
            return one_json_line(json);
        }
    }
    std::vector<std::string> refused;
    for (const std::string &line : lines) {
        const ReplyLine parts = parse_reply_line(line);
        if (parts.error && says_error(words[0], result, line)) {
            refused.push_back(line);
        } else if (is_name(parts.name)) {
            const auto type = types.find(std::string(parts.name));
            json["values"][std::string(parts.name)] =
                typed_value(type == types.end() ? "" : type->second, std::string(parts.value));
        } else {
            json["text"].push_back(line);
        }
    }
    if (lines.empty() || !refused.empty())
        add_errors(json, options, words, refused, result);
    return one_json_line(json);
}

} // namespace qvcd::client

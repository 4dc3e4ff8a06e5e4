#include "client/json_answer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

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
    const std::map<std::string, std::string> types = types_of(options, names);
    Json json = {{"command", words[0]}, {"result", result}, {"values", Json::object()}};
    if (names.empty()) {
        if (auto tree = parse_nested(lines)) {
            json["tree"] = std::move(*tree);
            return one_json_line(json);
        }
    }
    for (const std::string &line : lines) {
        const ReplyLine parts = parse_reply_line(line);
        if (parts.error && says_error(words[0], result, line)) {
            json["errors"].push_back({{"name", parts.name}, {"error", *parts.error}});
        } else if (is_name(parts.name)) {
            const auto type = types.find(std::string(parts.name));
            json["values"][std::string(parts.name)] =
                typed_value(type == types.end() ? "" : type->second, std::string(parts.value));
        } else {
            json["text"].push_back(line);
        }
    }
    return one_json_line(json);
}

} // namespace qvcd::client

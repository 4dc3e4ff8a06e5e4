#include "client/json_answer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>

#include "client/nested_text.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"
#include "qvclient/reply.h"

namespace qvcd::client {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostNames = 99; // that one command takes

template <typename Number>
bool parse_whole(const std::string &text, Number &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return !text.empty() && result.ec == std::errc() && result.ptr == end;
}

bool is_name(std::string_view name)
{
    return !name.empty() && name.find_first_of(" ,\t=%") == std::string_view::npos;
}

} // namespace

Json typed_value(std::string_view type, const std::string &value)
{
    const bool is_flag = type.starts_with("boolean");
    if (is_flag && (value == "0" || value == "1"))
        return value == "1";
    std::int64_t whole = 0;
    const bool is_integer =
        type.starts_with("integer") || type.starts_with("signed_integer") || type.starts_with("portnumber");
    const bool is_plain = value == "0" || !(value.starts_with('0') || value.starts_with("-0"));
    if (is_integer && is_plain && parse_whole(value, whole))
        return whole;
    double real = 0;
    if (type.starts_with("float") && parse_whole(value, real) && std::isfinite(real))
        return real;
    return value;
}

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

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "client/advice.h"
#include "client/errors.h"
#include "client/json_answer.h"
#include "client/local_commands.h"
#include "client/reply.h"
#include "client/screen.h"
#include "client/terminal_text.h"
#include "qvclient/connect.h"

namespace qvcd::client {

namespace {

using Json = nlohmann::ordered_json;

struct Unit {
    std::int64_t seconds;
    const char *name;
};
constexpr Unit kUnits[] = {{86400, " d "}, {3600, " h "}, {60, " min "}, {1, " s"}};

bool parse_seconds(const std::string &text, std::int64_t &seconds)
{
    const auto result = std::from_chars(text.data(), text.data() + text.size(), seconds);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

std::string duration(const std::string &text)
{
    std::int64_t left = 0;
    if (!parse_seconds(text, left))
        return text;
    std::string said;
    for (const auto &[seconds, name] : kUnits) {
        if (left >= seconds || (seconds == 1 && said.empty()))
            said += std::to_string(left / seconds) + name;
        left %= seconds;
    }
    return said.substr(0, said.find_last_not_of(' ') + 1);
}

Json number_or_text(const std::string &value)
{
    std::int64_t number = 0;
    return parse_seconds(value, number) ? Json(number) : Json(value);
}

Json json_of(const std::string &client, const std::vector<TableRow> &daemon, int result)
{
    Json json = {{"command", "version"}, {"result", result}, {"client", client}, {"daemon", Json::object()}};
    for (const TableRow &row : daemon) {
        if (row.name == "model") // there may be several
            json["daemon"]["model"].push_back(row.value);
        else
            json["daemon"][row.name] = row.name == "version" ? Json(row.value) : number_or_text(row.value);
    }
    return json;
}

} // namespace

int run_version(const Options &options, const Words &words)
{
    if (words.size() > 1)
        throw UsageError("version takes no arguments");
    const std::string version(kVersion); // "qvc 1.0.0\n"
    const std::string client = version.substr(4, version.size() - 5);
    std::vector<TableRow> rows;
    std::vector<std::string> refused;
    const int result = ask(options.endpoint, options.session, {command_line(words)}, options.limits(words[0]),
                           [&](std::string_view line) {
                               const ReplyLine parts = parse_reply_line(line);
                               if (parts.error)
                                   refused.emplace_back(line);
                               else
                                   rows.push_back({std::string(parts.name), std::string(parts.value)});
                           });
    const bool is_empty = rows.empty() && refused.empty();
    if (options.json) {
        Json json = json_of(client, rows, result);
        if (rows.empty())
            add_errors(json, options, words, refused, result);
        print_line(one_json_line(json));
        return exit_status(result);
    }
    for (TableRow &row : rows) {
        if (row.name == "uptime")
            row.value = duration(row.value);
    }
    rows.insert(rows.begin(), {"client", client});
    if (!options.quiet)
        show_lines(look_at_screen(), in_columns(rows));
    std::fflush(stdout);
    for (const std::string &line : refused)
        std::fprintf(stderr, "%s\n", for_errors(line).c_str());
    advise(options, words, refused, is_empty, result);
    return exit_status(result);
}

} // namespace qvcd::client

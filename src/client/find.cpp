#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
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

// What is known of one name. A group can have a help text, too.
struct Entry {
    std::string name;
    std::string help = {};
    std::string description = {};
};

std::string lower(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

int for_each_line(const Options &options, const char *command, const LineSink &sink)
{
    return ask(options.endpoint, options.session, {command}, options.limits(command), within_limit(sink));
}

struct Entries {
    std::vector<Entry> list;
    std::vector<std::string> refused; // what the daemon says in their place
    int result = 0;
};

// Sessions below administrator are told no help texts.
Entries all_entries(const Options &options)
{
    Entries all;
    std::vector<Entry> &entries = all.list;
    std::map<std::string, std::size_t, std::less<>> places;
    const auto entry = [&](std::string_view name) -> Entry & {
        const auto [place, is_new] = places.emplace(name, entries.size());
        if (is_new)
            entries.push_back({.name = std::string(name)});
        return entries[place->second];
    };
    all.result = for_each_line(options, "browse", [&](std::string_view line) {
        if (parse_reply_line(line).error)
            all.refused.emplace_back(line);
        else
            entry(line.substr(0, line.find('=')));
    });
    if (entries.empty())
        return all;
    for_each_line(options, "help.apihdf", [&](std::string_view line) {
        const std::size_t equals = line.find('=');
        const std::size_t dot = line.substr(0, equals).rfind('.');
        if (equals == std::string_view::npos || dot == std::string_view::npos)
            return;
        Entry &known = entry(line.substr(0, dot));
        const std::string_view leaf = line.substr(dot + 1, equals - dot - 1);
        (leaf == "help" ? known.help : known.description) = line.substr(equals + 1);
    });
    return all;
}

bool holds_all(const Entry &entry, const Words &words)
{
    const std::string text = lower(entry.name + "\n" + entry.help + "\n" + entry.description);
    return std::all_of(words.begin() + 1, words.end(),
                       [&](const std::string &word) { return text.find(lower(word)) != std::string::npos; });
}

Json json_of(const std::vector<Entry> &found)
{
    Json json = {{"command", "find"}, {"result", found.empty() ? 1 : 0}, {"found", Json::array()}};
    for (const Entry &entry : found) {
        json["found"].push_back({{"name", entry.name}, {"help", entry.help}});
        if (!entry.description.empty())
            json["found"].back()["description"] = entry.description;
    }
    return json;
}

std::string what_was_looked_for(const Words &words)
{
    std::string text;
    for (std::size_t i = 1; i < words.size(); ++i)
        text += (text.empty() ? "'" : " and '") + words[i] + "'";
    return text;
}

} // namespace

int run_find(const Options &options, const Words &words)
{
    if (words.size() < 2)
        throw UsageError("find needs a word to look for");
    Entries all = all_entries(options);
    const bool is_told_any = !all.list.empty();
    std::vector<Entry> &found = all.list;
    std::erase_if(found, [&](const Entry &entry) { return !holds_all(entry, words); });
    if (options.json) {
        Json json = json_of(found);
        if (!is_told_any)
            add_errors(json, options, {"browse"}, all.refused, all.result);
        print_line(one_json_line(json));
        return found.empty() ? 1 : 0;
    }
    std::vector<TableRow> rows;
    for (const Entry &entry : found)
        rows.push_back({entry.name, options.values_only ? "" : entry.help});
    if (!options.quiet)
        show_lines(look_at_screen(), in_columns(rows));
    for (const std::string &line : all.refused)
        std::fprintf(stderr, "%s\n", for_errors(line).c_str());
    if (!is_told_any)
        advise(options, {"browse"}, all.refused, all.refused.empty(), all.result);
    else if (found.empty() && !options.quiet)
        std::fprintf(stderr, "qvc: no name, help or description holds %s\n",
                     for_errors(what_was_looked_for(words)).c_str());
    return found.empty() ? 1 : 0; // as grep(1)
}

} // namespace qvcd::client

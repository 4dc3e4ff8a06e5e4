#include <algorithm>
#include <cctype>
#include <map>
#include <nlohmann/json.hpp>

#include "client/errors.h"
#include "client/json_answer.h"
#include "client/local_commands.h"
#include "client/reply.h"
#include "client/screen.h"
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

void for_each_line(const Options &options, const char *command, const LineSink &sink)
{
    ask(options.endpoint, options.session, {command}, options.limits(command), sink);
}

// Sessions below administrator are told no help texts.
std::vector<Entry> all_entries(const Options &options)
{
    std::vector<Entry> entries;
    std::map<std::string, std::size_t, std::less<>> places;
    const auto entry = [&](std::string_view name) -> Entry & {
        const auto [place, is_new] = places.emplace(name, entries.size());
        if (is_new)
            entries.push_back({.name = std::string(name)});
        return entries[place->second];
    };
    for_each_line(options, "browse", [&](std::string_view line) { entry(line.substr(0, line.find('='))); });
    for_each_line(options, "help.apihdf", [&](std::string_view line) {
        const std::size_t equals = line.find('=');
        const std::size_t dot = line.substr(0, equals).rfind('.');
        if (equals == std::string_view::npos || dot == std::string_view::npos)
            return;
        Entry &known = entry(line.substr(0, dot));
        const std::string_view leaf = line.substr(dot + 1, equals - dot - 1);
        (leaf == "help" ? known.help : known.description) = line.substr(equals + 1);
    });
    return entries;
}

bool holds_all(const Entry &entry, const Words &words)
{
    const std::string text = lower(entry.name + "\n" + entry.help + "\n" + entry.description);
    return std::all_of(words.begin() + 1, words.end(),
                       [&](const std::string &word) { return text.find(lower(word)) != std::string::npos; });
}

void print_json(const std::vector<Entry> &found)
{
    Json json = {{"command", "find"}, {"result", found.empty() ? 1 : 0}, {"found", Json::array()}};
    for (const Entry &entry : found) {
        json["found"].push_back({{"name", entry.name}, {"help", entry.help}});
        if (!entry.description.empty())
            json["found"].back()["description"] = entry.description;
    }
    print_line(one_json_line(json));
}

} // namespace

int run_find(const Options &options, const Words &words)
{
    if (words.size() < 2)
        throw UsageError("find needs a word to look for");
    std::vector<Entry> found = all_entries(options);
    std::erase_if(found, [&](const Entry &entry) { return !holds_all(entry, words); });
    if (options.json) {
        print_json(found);
    } else if (!options.quiet) {
        std::vector<TableRow> rows;
        for (const Entry &entry : found)
            rows.push_back({entry.name, options.values_only ? "" : entry.help});
        show_lines(look_at_screen(), in_columns(rows));
    }
    return found.empty() ? 1 : 0; // as grep(1)
}

} // namespace qvcd::client

#include "client/completion.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>

#include "client/errors.h"
#include "client/local_commands.h"
#include "client/reply.h"
#include "client/reply_cache.h"
#include "qvclient/connect.h"

namespace qvcd::client {

namespace {

constexpr std::chrono::seconds kPatience{2}; // the user waits at the prompt
constexpr TimeLimits kLimits{kPatience, kPatience};

// Commands whose arguments are no setting names, and those that take NAME=VALUE. All others take names.
enum class Takes { names, assignments, help_topics, nothing };
struct ArgumentRow {
    std::string_view command;
    Takes takes;
};
constexpr ArgumentRow kArguments[] = {
    {"set", Takes::assignments},    {"sets", Takes::assignments},      {"seta", Takes::assignments},
    {"setn", Takes::assignments},   {"modify", Takes::assignments},    {"update", Takes::assignments},
    {"add", Takes::assignments},    {"remove", Takes::assignments},    {"insert", Takes::assignments},
    {"help", Takes::help_topics},   {"login", Takes::nothing},         {"logout", Takes::nothing},
    {"sessions", Takes::nothing},   {"get_session", Takes::nothing},   {"user", Takes::nothing},
    {"group", Takes::nothing},      {"menu", Takes::nothing},          {"preset", Takes::nothing},
    {"profile", Takes::nothing},    {"factory_reset", Takes::nothing}, {"import", Takes::nothing},
    {"watch", Takes::nothing},      {"completion", Takes::nothing},    {"plan", Takes::assignments},
    {"commit", Takes::assignments}, {"confirm", Takes::nothing},       {"abort", Takes::nothing},
    {"rollback", Takes::nothing},
};

// What else stands on the lines of some commands.
struct OptionRow {
    std::string_view command;
    std::string_view options; // between blanks; those with an argument end in ":"
    std::string_view words;   // in front of the names
};
constexpr OptionRow kOptions[] = {
    {"plan", "-a -j", ""},
    {"diff", "-j", "saved default running"},
    {"commit", "-a -c: -j -m: -n -s", ""},
    {"confirm", "-c: -j", ""},
    {"abort", "-j", ""},
    {"rollback", "-c: -j -m: -n", ""},
    {"history", "-j -n:", ""},
};

Takes takes(std::string_view command)
{
    const auto *row =
        std::ranges::find(kArguments, command.substr(0, command.find('.')), &ArgumentRow::command);
    return row == std::end(kArguments) ? Takes::names : row->takes;
}

OptionRow options_of(std::string_view command)
{
    const auto *row = std::ranges::find(kOptions, command, &OptionRow::command);
    return row == std::end(kOptions) ? OptionRow{} : *row;
}

std::vector<std::string> blank_separated(std::string_view text)
{
    std::istringstream stream{std::string(text)};
    return {std::istream_iterator<std::string>(stream), {}};
}

// One command's reply, from the cache or from the daemon; empty when there is none.
std::string reply_text(const Options &options, const std::string &line)
{
    const std::string certificate = options.endpoint.tls ? " " + options.endpoint.tls->certificate : "";
    const std::string key =
        options.endpoint.text() + certificate + " " + std::to_string(options.session) + " " + line;
    if (const auto kept = cached_text(key))
        return *kept;
    std::string text;
    const auto keep = [&](std::string_view reply) {
        text += reply;
        text += '\n';
    };
    try {
        if (ask(options.endpoint, options.session, {line}, kLimits, keep) != 0)
            return {};
    } catch (const WireError &) {
        return {};
    } catch (const UsageError &) { // a file for TLS
        return {};
    }
    cache_text(key, text);
    return text;
}

std::vector<std::string> lines_of(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::vector<std::string> starting_with(std::vector<std::string> names, const std::string &prefix)
{
    std::erase_if(names, [&](const std::string &name) { return !name.starts_with(prefix); });
    return names;
}

std::vector<std::string> commands(const Options &options, const std::string &word)
{
    const std::size_t dot = word.find('.');
    if (dot != std::string::npos)
        return starting_with(parse_subcommands(reply_text(options, "help.cmd " + word.substr(0, dot))), word);
    std::vector<std::string> names = parse_command_list(reply_text(options, "help.cmd"));
    names.insert(names.end(), {"watch", "completion"});
    return starting_with(names, word);
}

std::vector<std::string> setting_names(const Options &options, const std::string &word, std::string_view end)
{
    return next_name_parts(reply_text(options, "browse"), word, end);
}

// The word may be a list "A,B": its last name is completed.
std::vector<std::string> listed_names(const Options &options, const std::string &word)
{
    const std::size_t comma = word.rfind(',');
    const std::size_t start = comma == std::string::npos ? 0 : comma + 1;
    std::vector<std::string> names = setting_names(options, word.substr(start), "");
    for (std::string &name : names)
        name.insert(0, word, 0, start);
    return names;
}

std::vector<std::string> help_topics(const Options &options, const std::string &word)
{
    std::vector<std::string> topics = commands(options, word);
    const std::vector<std::string> names = setting_names(options, word, "");
    topics.insert(topics.end(), names.begin(), names.end());
    return topics;
}

std::vector<std::string> arguments(const Options &options, Takes takes, const std::string &word)
{
    switch (takes) {
    case Takes::names:
        return listed_names(options, word);
    case Takes::assignments:
        return word.find('=') == std::string::npos ? setting_names(options, word, "=")
                                                   : std::vector<std::string>{};
    case Takes::help_topics:
        return help_topics(options, word);
    case Takes::nothing:
        break;
    }
    return {};
}

// `words`: the line behind "qvc" up to the cursor, the options included.
int print_candidates(const Words &words)
{
    Options options;
    try {
        options = parse_options({words.begin(), words.end() - 1});
    } catch (const UsageError &) {
        return 1; // the word is an option's argument, or follows a wrong one
    }
    for (const std::string &candidate : complete(options, options.words, words.back()))
        print_line(candidate);
    return 0;
}

} // namespace

std::vector<std::string> parse_command_list(std::string_view text)
{
    std::vector<std::string> names;
    for (const std::string &line : lines_of(text))
        if (const std::size_t colon = line.find(": "); colon != std::string::npos)
            names.push_back(line.substr(0, colon));
    return names;
}

std::vector<std::string> parse_subcommands(std::string_view page)
{
    std::vector<std::string> names;
    bool in_section = false;
    for (const std::string &line : lines_of(page)) {
        if (!line.starts_with('\t'))
            in_section = line == "SUB-COMMANDS";
        else if (const std::size_t end = line.find(" - "); in_section && end != std::string::npos)
            names.push_back(line.substr(1, end - 1));
    }
    return names;
}

std::vector<std::string> next_name_parts(std::string_view text, std::string_view prefix, std::string_view end)
{
    std::set<std::string> parts;
    for (const std::string &line : lines_of(text)) {
        const std::string name = line.substr(0, line.find('='));
        if (!name.starts_with(prefix))
            continue;
        const std::size_t dot = name.find('.', prefix.size());
        parts.insert(dot == std::string::npos ? name + std::string(end) : name.substr(0, dot + 1));
    }
    return {parts.begin(), parts.end()};
}

std::vector<std::string> complete(const Options &options, const std::vector<std::string> &before,
                                  const std::string &word)
{
    if (before.empty())
        return commands(options, word);
    const OptionRow row = options_of(before[0]);
    std::vector<std::string> candidates = blank_separated(row.options);
    if (before.size() > 1 && std::ranges::count(candidates, before.back() + ":") != 0)
        return {};
    if (word.starts_with('-')) {
        for (std::string &option : candidates)
            option = option.substr(0, option.find(':'));
    } else {
        candidates = arguments(options, takes(before[0]), word);
        const std::vector<std::string> words = blank_separated(row.words);
        candidates.insert(candidates.begin(), words.begin(), words.end());
    }
    return starting_with(candidates, word);
}

int run_completion(const Options &, const Words &words)
{
    if (words.size() == 2 && words[1] == "bash") {
        std::fputs(kBashCompletion, stdout);
        return 0;
    }
    if (words.size() > 2 && words[1] == "words") // what the script asks
        return print_candidates({words.begin() + 2, words.end()});
    throw UsageError("completion takes the name of a shell: bash");
}

} // namespace qvcd::client

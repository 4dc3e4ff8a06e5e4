#include "client/completion.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>

#include "client/command_shapes.h"
#include "client/completion_values.h"
#include "client/errors.h"
#include "client/known_commands.h"
#include "client/level.h"
#include "client/local_commands.h"
#include "client/reply.h"
#include "client/session_choice.h"
#include "client/shell_words.h"
#include "client/short_question.h"

namespace qvcd::client {

namespace {

using Candidates = std::vector<std::string>;

Candidates blank_separated(std::string_view text)
{
    std::istringstream stream{std::string(text)};
    return {std::istream_iterator<std::string>(stream), {}};
}

Candidates starting_with(Candidates names, const std::string &prefix)
{
    std::erase_if(names, [&](const std::string &name) { return !name.starts_with(prefix); });
    std::ranges::sort(names);
    names.erase(std::ranges::unique(names).begin(), names.end());
    return names;
}

// The daemon says nothing of its commands to sessions below administrator, and not all to those: what it does
// not tell, the client knows.
Candidates commands(const Options &options, const std::string &word)
{
    const std::string name = word.substr(0, word.find('.'));
    const KnownCommand *known = find_command({word});
    if (name.size() == word.size()) {
        Candidates names = parse_command_list(kept_answer(options, "help.cmd"));
        for (const KnownCommand &one : known_commands())
            names.emplace_back(one.name);
        std::erase(names, "undefined");
        return names;
    }
    Candidates names = parse_subcommands(kept_answer(options, "help.cmd " + name));
    for (const std::string &sub : blank_separated(known ? known->subcommands : ""))
        names.push_back(name + "." + sub);
    return names;
}

// Where a word stands: its candidates are written as it is, which may be short for a whole name.
struct Place {
    const Options &options;
    const std::string &level;
};

Candidates setting_names(const Place &place, const std::string &word, std::string_view end)
{
    const std::string typed_before = word.starts_with('.') ? "." : "";
    const std::string above = typed_before.empty() && !place.level.empty() ? place.level + "." : "";
    Candidates names =
        next_name_parts(kept_answer(place.options, "browse"), above + word.substr(typed_before.size()), end);
    for (std::string &name : names)
        name = typed_before + name.substr(above.size());
    return names;
}

// The word may be a list "A,B": its last name is completed.
Candidates listed_names(const Place &place, const std::string &word)
{
    const std::size_t start = word.rfind(',') + 1; // npos + 1 is 0
    Candidates names = setting_names(place, word.substr(start), "");
    for (std::string &name : names)
        name.insert(0, word, 0, start);
    return names;
}

Candidates assignments(const Place &place, const std::string &word)
{
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos)
        return setting_names(place, word, "=");
    return assignments_of(place.options, whole_name(place.level, word.substr(0, equals)),
                          word.substr(0, equals + 1), word.substr(equals + 1));
}

Candidates help_topics(const Place &place, const std::string &word)
{
    Candidates topics = commands(place.options, word);
    const Candidates names = setting_names(place, word, "");
    topics.insert(topics.end(), names.begin(), names.end());
    return topics;
}

Candidates arguments(const Place &place, Takes takes, const std::string &word)
{
    switch (takes) {
    case Takes::names:
        return listed_names(place, word);
    case Takes::assignments:
        return assignments(place, word);
    case Takes::help_topics:
        return help_topics(place, word);
    default:
        return named_things(place.options, takes);
    }
}

std::size_t arguments_in(const Words &before, const CommandShape &shape)
{
    std::size_t count = 0;
    for (std::size_t i = 1; i < before.size(); ++i) {
        if (!before[i].starts_with('-'))
            ++count;
        else if (shape.has_argument(before[i]))
            ++i;
    }
    return count;
}

Candidates options_of(const CommandShape &shape)
{
    Candidates options = blank_separated(shape.options);
    for (std::string &option : options)
        option = option.substr(0, option.find(':'));
    return options;
}

constexpr std::string_view kGlobalOptions =
    "-H -e -f -k -q -s -t -v -y --ca --cert --help --json --key --tls --version";

bool takes_file(const std::string &option)
{
    return option == "-f" || option == "--ca" || option == "--cert" || option == "--key";
}

// `words`: the line behind "qvc" up to the word at the cursor.
Candidates complete_line(const Words &words, const std::string &word)
{
    try {
        Options options = parse_options(words);
        choose_session(options);
        if (options.words.empty() && word.starts_with('-'))
            return starting_with(blank_separated(kGlobalOptions), word);
        return complete(options, options.words, word);
    } catch (const UsageError &) { // the word is an option's argument, or follows a wrong one
        return !words.empty() && takes_file(words.back()) ? files_like(word) : Candidates{};
    }
}

// What is printed takes the place of `part`, the end of the line up to the cursor: in Bash what follows the
// last of its word breaks, elsewhere the word.
int print_candidates(const std::string &line, const std::string &part)
{
    const Tokens tokens = tokenize(line, Separators::blanks);
    if (tokens.list.empty())
        return 1;
    Words words;
    for (std::size_t i = 1; i < tokens.list.size(); ++i)
        words.push_back(tokens.list[i].text);
    std::string word;
    if (tokens.in_word && !words.empty()) {
        word = words.back();
        words.pop_back();
    }
    const std::string typed = tokens.in_word ? line.substr(tokens.list.back().start) : "";
    if (tokens.open || typed != typed_form(word) || part.size() > typed.size())
        return 1; // with quotes it is not as typed_form() would have it
    for (const std::string &candidate : complete_line(words, word))
        print_line(typed_form(candidate).substr(typed.size() - part.size()));
    return 0;
}

} // namespace

Candidates parse_command_list(std::string_view text)
{
    Candidates names;
    for (const std::string &line : lines_of(text))
        if (const std::size_t colon = line.find(": "); colon != std::string::npos)
            names.push_back(line.substr(0, colon));
    return names;
}

Candidates parse_subcommands(std::string_view page)
{
    Candidates names;
    bool in_section = false;
    for (const std::string &line : lines_of(page)) {
        if (!line.starts_with('\t'))
            in_section = line == "SUB-COMMANDS";
        else if (const std::size_t end = line.find(" - "); in_section && end != std::string::npos)
            names.push_back(line.substr(1, end - 1));
    }
    return names;
}

Candidates next_name_parts(std::string_view text, std::string_view prefix, std::string_view end)
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

Candidates complete(const Options &options, const Words &before, const std::string &word,
                    const std::string &level)
{
    if (before.empty())
        return starting_with(commands(options, word), word);
    const CommandShape shape = shape_of(before);
    if (before.size() > 1 && shape.has_argument(before.back()))
        return before.back() == "-l" ? files_like(word) : Candidates{};
    if (word.starts_with('-'))
        return starting_with(options_of(shape), word);
    const std::size_t argument = arguments_in(with_subcommand(before), shape);
    Candidates candidates = arguments({options, level}, shape.takes(argument), word);
    if (argument == 0) {
        const Candidates words = blank_separated(shape.words);
        candidates.insert(candidates.end(), words.begin(), words.end());
    }
    return starting_with(candidates, word);
}

bool goes_on(const std::string &candidate)
{
    return !candidate.empty() && std::string_view(".=/").find(candidate.back()) != std::string_view::npos;
}

int run_completion(const Options &, const Words &words)
{
    for (const CompletionScript &script : kCompletionScripts) {
        if (words.size() == 2 && words[1] == script.shell) {
            std::fputs(script.text, stdout);
            return 0;
        }
    }
    if (words.size() == 4 && words[1] == "line") // what the script asks
        return print_candidates(words[2], words[3]);
    throw UsageError("completion takes the name of a shell: bash, zsh or fish");
}

} // namespace qvcd::client

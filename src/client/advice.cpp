#include "client/advice.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "client/command_pages.h"
#include "client/command_shapes.h"
#include "client/known_commands.h"
#include "client/nearest.h"
#include "client/short_question.h"
#include "client/terminal_text.h"
#include "client/type_words.h"
#include "qvclient/escape.h"
#include "qvclient/reply.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostAdvised = 5; // errors of one reply
constexpr std::size_t kMostProposals = 3;

std::vector<std::string> answer_of(const Options &options, const Words &words)
{
    const auto answer = ask_shortly(options, {wire_line(words)});
    return answer ? answer->lines() : std::vector<std::string>();
}

void say(const std::string &text)
{
    std::fprintf(stderr, "qvc: %s\n", for_errors(text).c_str());
}

std::vector<std::string> known_settings(const Options &options)
{
    std::vector<std::string> apis;
    for (const std::string &line : lines_of(kept_answer(options, "browse")))
        apis.push_back(line.substr(0, line.find('=')));
    return apis;
}

void say_nearest(const Options &options, const std::string &name)
{
    const std::vector<std::string> apis = known_settings(options);
    if (std::ranges::any_of(apis, [&](const std::string &api) { return api.starts_with(name + "."); }))
        return say(name + " is a group of settings");
    if (const std::string meant = did_you_mean(nearest_names(name, apis, kMostProposals)); !meant.empty())
        say("there is no " + name + meant);
}

// Of an error that speaks of no name.
bool is_about_usage(const std::string &command, std::string_view error)
{
    static constexpr std::string_view kErrors[] = {"Invalid command arguments", "Invalid arguments",
                                                   "Need to specify", "Specify a file", "error: user pwd"};
    return (error == "Invalid user" && command != "login") ||
           std::ranges::any_of(kErrors, [error](std::string_view one) { return error.starts_with(one); });
}

// How a command is used; where there are many in one the manual tells it better.
std::string usage(const std::string &command)
{
    const std::string name = command.substr(0, command.find('.'));
    const std::string synopsis = command_synopsis(name);
    if (synopsis.empty())
        return {};
    return synopsis.find_first_of(" .[") == synopsis.find(' ')
               ? "it is used so: " + synopsis
               : "\"qvc help " + name + "\" tells how it is used";
}

// The last failure of the API: its line, then those behind blanks.
void say_failure(const Options &options, const std::string &name)
{
    const std::vector<std::string> lines = answer_of(options, {"failures", name});
    const auto last = std::find_if(lines.rbegin(), lines.rend(),
                                   [](const std::string &line) { return !line.starts_with(' '); });
    if (last == lines.rend())
        return;
    const auto first = last.base() - 1;
    say(first->substr(first->find(' ') + 1)); // behind the time
    for (auto line = first + 1; line != lines.end(); ++line)
        std::fprintf(stderr, "%s\n", for_errors(*line).c_str());
}

void say_right(const Options &options, const std::string &name)
{
    const std::string who = options.session == 0 ? "who asks" : "session " + std::to_string(options.session);
    say(who + " has not the right" + (name.empty() ? "" : " to do this to " + name) +
        "; \"qvc login USER\" gives a session with that user's rights, for -s");
}

void advise_on(const Options &options, const std::string &name, std::string_view error)
{
    if (error == "Parameter not found")
        return say_nearest(options, name);
    if (error == "Apply failed")
        return say_failure(options, name);
    if (error == "Invalid permission")
        return say_right(options, name);
    if (const std::string allowed = allowed_values(options, name); !allowed.empty())
        say(sentence_on(name, allowed));
}

// Administrators' commands answer nothing to others, and end with 0.
std::string lack_of_right(const Options &options, const Words &words)
{
    if (options.session == 0 || !is_for_administrators(words))
        return {};
    const auto perm = value_in(answer_of(options, {"get_session", std::to_string(options.session)}), "perm");
    constexpr unsigned long kAdministration = 0x0f00;
    constexpr int kHexadecimal = 16;
    if (!perm || (std::strtoul(perm->c_str(), nullptr, kHexadecimal) & kAdministration) != 0)
        return {};
    return "session " + std::to_string(options.session) + " has not the right to " + words[0] +
           ": it is for administrators";
}

// Who loads or reads one is told its values.
std::string lack_of_preset(const Words &words)
{
    static constexpr std::string_view kLoading[] = {"preset.load", "preset.load_name", "preset.read"};
    const Words whole = with_subcommand(words);
    const bool loads = whole.size() > 1 && std::ranges::count(kLoading, whole[0]) != 0;
    return loads ? "there is no preset " + whole[1] + ", or nothing in it" : "";
}

} // namespace

std::vector<std::string> topics_like(const Options &options, const std::string &name)
{
    std::vector<std::string> commands;
    for (const KnownCommand &row : known_commands())
        commands.emplace_back(row.name);
    std::vector<std::string> found = nearest(name, commands, kMostProposals);
    return found.empty() ? nearest_names(name, known_settings(options), kMostProposals) : found;
}

std::string allowed_values(const Options &options, const std::string &name)
{
    return allowed_values(answer_of(options, {"introspect", name}), name);
}

// The daemon answers nothing at all to a session that it does not know.
std::string reason_of_silence(const Options &options, const Words &words, int result)
{
    if (result == 0) {
        const std::string lack = lack_of_right(options, words);
        return lack.empty() ? lack_of_preset(words) : lack;
    }
    const auto answer = ask_shortly(options, {});
    if (!answer)
        return {};
    if (options.session == 0)
        return "the daemon refuses " + words[0] + " without a word; " + usage(words[0]);
    const std::string session = "session " + std::to_string(options.session);
    if (answer->result != 0)
        return "there is no " + session +
               ", or it is not for who asks from here; \"qvc login USER\" gives one";
    return "the daemon refuses " + words[0] + " without a word: " + session + " may have no right to it";
}

void advise(const Options &options, const Words &words, const std::vector<std::string> &refused,
            bool is_empty, int result)
{
    const std::string reason = is_empty ? reason_of_silence(options, words, result) : "";
    if (!reason.empty())
        say(reason);
    std::set<std::string, std::less<>> done;
    for (const std::string &line : refused) {
        const ReplyLine parts = parse_reply_line(line);
        const std::string name(parts.name);
        const bool is_name = !name.empty() && name.find_first_of(" ,\t") == std::string::npos;
        if (parts.error && name.empty() && is_about_usage(words[0], *parts.error) && !usage(words[0]).empty())
            say(usage(words[0]));
        if (!parts.error || (!is_name && *parts.error != "Invalid permission") || done.size() >= kMostAdvised)
            continue;
        const bool is_said = *parts.error == "Apply failed" && is_change_command(words[0]);
        if (!is_said && done.insert(name).second)
            advise_on(options, name, *parts.error);
    }
}

} // namespace qvcd::client

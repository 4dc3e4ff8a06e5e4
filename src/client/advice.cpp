#include "client/advice.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "client/command_pages.h"
#include "client/command_shapes.h"
#include "client/completion_values.h"
#include "client/known_commands.h"
#include "client/nearest.h"
#include "client/plain_command.h"
#include "client/short_question.h"
#include "client/terminal_text.h"
#include "client/type_words.h"
#include "qvclient/escape.h"
#include "qvclient/reply.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostAdvised = 5; // errors of one reply
constexpr std::size_t kMostProposals = 3;
constexpr std::size_t kMostListed = 10;

std::vector<std::string> answer_of(const Options &options, const Words &words)
{
    const auto answer = ask_shortly(options, {wire_line(words)});
    return answer ? answer->lines() : std::vector<std::string>();
}

std::string joined(const std::vector<std::string> &words)
{
    std::string list;
    for (const std::string &word : words)
        list += (list.empty() ? "" : ", ") + word;
    return list;
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
        return say_advice(name + " is a group of settings");
    const std::string level = options.level + ".";
    const std::string behind = name.starts_with(level) ? name.substr(level.size()) : "";
    const auto is_it = [&](const std::string &api) { return api == behind || api.starts_with(behind + "."); };
    if (!behind.empty() && std::ranges::any_of(apis, is_it))
        return say_advice("there is no " + name + "; ." + behind + " counts from the top");
    if (const std::string meant = did_you_mean(nearest_names(name, apis, kMostProposals)); !meant.empty())
        say_advice("there is no " + name + meant);
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
    say_advice(first->substr(first->find(' ') + 1)); // behind the time
    for (auto line = first + 1; line != lines.end(); ++line)
        std::fprintf(stderr, "%s\n", for_errors(*line).c_str());
}

void say_right(const Options &options, const std::string &name)
{
    const std::string who = options.session == 0 ? "who asks" : "session " + std::to_string(options.session);
    say_advice(who + " has not the right" + (name.empty() ? "" : " to do this to " + name) +
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
        say_advice(sentence_on(name, allowed));
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

std::string kind_of_thing(Takes takes)
{
    switch (takes) {
    case Takes::users:
        return "user";
    case Takes::user_groups:
        return "group";
    case Takes::preset_numbers:
    case Takes::preset_names:
        return "preset";
    case Takes::profiles:
        return "profile";
    default:
        return {};
    }
}

// "there is no user bbo (did you mean bob?)", of what the command names and there is not.
std::string lack_of_thing(const Options &options, const Words &words)
{
    const Words whole = with_subcommand(words);
    const CommandShape shape = shape_of(whole);
    for (std::size_t i = 1; i < whole.size(); ++i) {
        const Takes takes = shape.takes(i - 1);
        const std::string kind = kind_of_thing(takes);
        const std::vector<std::string> all =
            kind.empty() ? std::vector<std::string>() : named_things(options, takes);
        if (all.empty() || std::ranges::count(all, whole[i]) != 0)
            continue;
        std::string text = "there is no " + kind + " " + whole[i];
        text += did_you_mean(nearest(whole[i], all, kMostProposals));
        if (text.ends_with(')') || all.size() > kMostListed)
            return text;
        return text + " (there " + (all.size() == 1 ? "is " : "are ") + joined(all) + ")";
    }
    return {};
}

// The daemon says nothing of presets that it does not find.
bool looks_for_preset(const Words &words)
{
    static constexpr std::string_view kCommands[] = {"preset.load_name", "preset.load_apply_name",
                                                     "preset.read"};
    return std::ranges::count(kCommands, with_subcommand(words)[0]) != 0;
}

// One apply runs a few actions; what asks for further ones waits for the next.
void say_what_waits(const Options &options, const Words &words)
{
    Words question{"checkapp"};
    for (std::size_t i = 1; i < words.size() && !words[0].starts_with("preset"); ++i)
        question.push_back(words[i].substr(0, words[i].find('=')));
    const std::size_t count = answer_of(options, question).size();
    if (count > 0)
        say_advice(std::to_string(count) + (count == 1 ? " setting waits" : " settings wait") +
                   " for the next \"qvc apply\": one runs at most 9 different actions");
}

bool is_about_things(std::string_view error)
{
    return error == "Profile not found" || error == "Does not exist" || error == "Invalid group" ||
           (error.starts_with("user ") && error.ends_with(" does not exist"));
}

} // namespace

void say_advice(const std::string &text)
{
    std::fprintf(stderr, "qvc: %s\n", for_errors(text).c_str());
}

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
        return lack.empty() && looks_for_preset(words) ? lack_of_thing(options, words) : lack;
    }
    const auto answer = ask_shortly(options, {});
    if (!answer)
        return {};
    if (options.session == 0)
        return "the daemon refuses " + words[0] + " and does not say why; " +
               (options.endpoint.local() ? "" : "nobody it knows is logged in from here, or ") +
               usage(words[0]);
    const std::string session = "session " + std::to_string(options.session);
    if (answer->result != 0)
        return "there is no " + session +
               ", or it is not for who asks from here; \"qvc login USER\" gives one";
    return "the daemon refuses " + words[0] + " and does not say why: " + session +
           " may have no right to it";
}

void advise(const Options &options, const Words &words, const std::vector<std::string> &refused,
            bool is_empty, int result)
{
    const std::string reason = is_empty ? reason_of_silence(options, words, result) : "";
    if (!reason.empty())
        say_advice(reason);
    if (result == 0 && is_applying(words))
        say_what_waits(options, words);
    std::set<std::string, std::less<>> done;
    for (const std::string &line : refused) {
        const ReplyLine parts = parse_reply_line(line);
        const std::string name(parts.name);
        if (parts.error && is_about_things(*parts.error)) {
            if (const std::string lack = lack_of_thing(options, words);
                !lack.empty() && done.insert(lack).second)
                say_advice(lack);
            continue;
        }
        const bool is_name = !name.empty() && name.find_first_of(" ,\t") == std::string::npos;
        if (parts.error && name.empty() && is_about_usage(words[0], *parts.error) && !usage(words[0]).empty())
            say_advice(usage(words[0]));
        if (!parts.error || (!is_name && *parts.error != "Invalid permission") || done.size() >= kMostAdvised)
            continue;
        const bool is_said = *parts.error == "Apply failed" && is_change_command(words[0]);
        if (!is_said && done.insert(name).second)
            advise_on(options, name, *parts.error);
    }
}

} // namespace qvcd::client

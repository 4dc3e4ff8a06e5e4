#include "client/advice.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "client/known_commands.h"
#include "client/nearest.h"
#include "client/short_question.h"
#include "client/terminal_text.h"
#include "qvclient/escape.h"
#include "qvclient/reply.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostAdvised = 5; // errors of one reply
constexpr std::size_t kMostProposals = 3;
constexpr std::size_t kMostValues = 20;

std::vector<std::string> answer_of(const Options &options, const Words &words)
{
    const auto answer = ask_shortly(options, {wire_line(words)});
    return answer ? answer->lines() : std::vector<std::string>();
}

void say(const std::string &text)
{
    std::fprintf(stderr, "qvc: %s\n", for_errors(text).c_str());
}

std::vector<std::string> settings_like(const Options &options, const std::string &name)
{
    std::vector<std::string> apis;
    for (const std::string &line : lines_of(kept_answer(options, "browse")))
        apis.push_back(line.substr(0, line.find('=')));
    return nearest_names(name, apis, kMostProposals);
}

void say_nearest(const Options &options, const std::string &name)
{
    if (const std::string meant = did_you_mean(settings_like(options, name)); !meant.empty())
        say("there is no " + name + meant);
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
        say(name + " takes " + allowed);
}

// Administrators' commands answer nothing to others, and end with 0.
void advise_on_nothing(const Options &options, const Words &words)
{
    if (options.session == 0 || !is_for_administrators(words))
        return;
    const auto perm = value_in(answer_of(options, {"get_session", std::to_string(options.session)}), "perm");
    constexpr unsigned long kAdministration = 0x0f00;
    constexpr int kHexadecimal = 16;
    if (perm && (std::strtoul(perm->c_str(), nullptr, kHexadecimal) & kAdministration) == 0)
        say("session " + std::to_string(options.session) + " has not the right to " + words[0] +
            ": it is for administrators");
}

// The daemon answers nothing at all to a session that it does not know.
void advise_on_silence(const Options &options, const Words &words)
{
    if (options.session == 0)
        return;
    const auto answer = ask_shortly(options, {});
    if (answer && answer->result != 0)
        say("there is no session " + std::to_string(options.session) +
            ", or it is not for who asks from here; \"qvc login USER\" gives one");
    else if (answer)
        say("the daemon refuses " + words[0] + " without a word: session " + std::to_string(options.session) +
            " may have no right to it");
}

} // namespace

std::vector<std::string> topics_like(const Options &options, const std::string &name)
{
    std::vector<std::string> commands;
    for (const KnownCommand &row : known_commands())
        commands.emplace_back(row.name);
    std::vector<std::string> found = nearest(name, commands, kMostProposals);
    return found.empty() ? settings_like(options, name) : found;
}

std::string allowed_values(const std::vector<std::string> &lines, const std::string &name)
{
    const std::string min = value_in(lines, name + ".min").value_or("");
    const std::string max = value_in(lines, name + ".max").value_or("");
    if (std::string choices = value_in(lines, name + ".choices").value_or(""); choices.size() > 2) {
        choices = choices.substr(1, choices.size() - 2);
        std::string list;
        std::size_t count = 0;
        for (std::size_t start = 0; start <= choices.size() && count < kMostValues; ++count) {
            const std::size_t end = std::min(choices.find(',', start), choices.size());
            list += (list.empty() ? "" : ", ") + choices.substr(start, end - start);
            start = end + 1;
            if (start <= choices.size() && count + 1 == kMostValues)
                list += ", ...";
        }
        return "one of " + list;
    }
    const std::string type = value_in(lines, name + ".type").value_or("");
    const std::string kind = type.find("length") != std::string::npos ? " characters" : "";
    if (!min.empty() && !max.empty())
        return min + " to " + max + kind;
    if (!min.empty())
        return min + kind + " and more";
    if (!max.empty())
        return "up to " + max + kind;
    if (type.starts_with("portnumber"))
        return "a port, 0 to 65535";
    return type.empty() || type.starts_with("string") ? std::string() : "a value of type " + type;
}

std::string allowed_values(const Options &options, const std::string &name)
{
    return allowed_values(answer_of(options, {"introspect", name}), name);
}

void advise(const Options &options, const Words &words, const std::vector<std::string> &refused,
            bool is_empty, int result)
{
    if (is_empty && result != 0)
        advise_on_silence(options, words);
    else if (is_empty)
        advise_on_nothing(options, words);
    std::set<std::string, std::less<>> done;
    for (const std::string &line : refused) {
        const ReplyLine parts = parse_reply_line(line);
        const std::string name(parts.name);
        const bool is_name = !name.empty() && name.find_first_of(" ,\t") == std::string::npos;
        if (!parts.error || (!is_name && *parts.error != "Invalid permission") || done.size() >= kMostAdvised)
            continue;
        const bool is_said = *parts.error == "Apply failed" && is_change_command(words[0]);
        if (!is_said && done.insert(name).second)
            advise_on(options, name, *parts.error);
    }
}

} // namespace qvcd::client

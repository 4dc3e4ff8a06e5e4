#include "client/careful.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "client/command_shapes.h"
#include "client/person.h"
#include "client/short_question.h"

namespace qvcd::client {

namespace {

// What names nothing is everything: for the daemon, commas are blanks.
bool is_bare(const Words &words)
{
    return std::all_of(words.begin() + 1, words.end(), [](const std::string &word) {
        return word.find_first_not_of(',') == std::string::npos;
    });
}

std::string question_of_reset(const Words &words)
{
    const std::string scope = words.size() > 1 ? words[1] : "all";
    const std::string passwords = "and the passwords of the users go back to what the factory set.";
    if (scope == "all")
        return "All settings " + passwords;
    if (scope == "network")
        return "The settings of the network " + passwords;
    return scope == "nonetwork" ? "All settings but those of the network " + passwords : "";
}

// Of the preset that a command names, or of the current one. Empty where there is nothing to lose.
std::string question_of_preset(const Options &options, const Words &words)
{
    const auto answer = ask_shortly(options, {"preset.info"});
    const std::vector<std::string> lines = answer ? answer->lines() : std::vector<std::string>{};
    const std::string number = words.size() > 1 ? std::to_string(std::strtol(words[1].c_str(), nullptr, 10))
                                                : value_in(lines, "Preset.Current.number").value_or("of now");
    const std::optional<std::string> name = value_in(lines, "Preset." + number + ".Config.name");
    if (answer && words.size() > 1 && !name)
        return "";
    return "Preset " + number + (name ? " (" + *name + ")" : "") +
           " is overwritten with the settings of now.";
}

// "default.A" is "default A", as "user.default" is "user default".
Words with_names_apart(const Words &words)
{
    Words apart = with_subcommand(words);
    const std::size_t dot = apart.at(0).find('.');
    const std::string command = apart[0].substr(0, dot);
    if (dot != std::string::npos && (command == "default" || command == "factory_reset")) {
        apart.insert(apart.begin() + 1, apart[0].substr(dot + 1));
        apart[0] = command;
    }
    return apart;
}

using Question = std::string (*)(const Options &options, const Words &words);

struct CarefulRow {
    std::string_view command;
    Question question; // empty where there is nothing to ask
};

constexpr CarefulRow kCareful[] = {
    {"factory_reset", [](const Options &, const Words &words) { return question_of_reset(words); }},
    {"default",
     [](const Options &, const Words &words) {
         return std::string(is_bare(words) ? "All settings go back to their defaults." : "");
     }},
    {"user.default",
     [](const Options &, const Words &words) {
         return std::string(is_bare(words) ? "The passwords of all users go back to their defaults." : "");
     }},
    {"profile.reset",
     [](const Options &, const Words &) { return std::string("All profiles are removed."); }},
    {"preset.store", question_of_preset},
    {"preset.set", question_of_preset},
    {"preset.import",
     [](const Options &, const Words &) {
         return std::string("The presets in the file take the place of those that there are.");
     }},
};

} // namespace

bool is_wanted(const Options &options, Words &words)
{
    const Words apart = with_names_apart(words);
    const auto *row = std::ranges::find(kCareful, std::string_view(apart.at(0)), &CarefulRow::command);
    if (row == std::end(kCareful))
        return true;
    const bool yes = std::erase(words, "-y") > 0 || options.yes;
    if (yes || !is_typed())
        return true;
    const std::string text = row->question(options, apart);
    if (text.empty() || ask_person(text + " Go on?") == Reply::yes)
        return true;
    std::fprintf(stderr, "qvc: nothing was done\n");
    return false;
}

} // namespace qvcd::client

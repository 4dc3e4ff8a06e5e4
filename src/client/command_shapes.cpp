#include "client/command_shapes.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "client/known_commands.h"

namespace qvcd::client {

namespace {

using enum Takes;

constexpr std::string_view kAskedFirst = "-y";
constexpr std::string_view kFileHere = "-l:";

// Commands with sub-commands that are not here take nothing.
constexpr CommandShape kShapes[] = {
    {"set", assignments, assignments},
    {"sets", assignments, assignments},
    {"seta", assignments, assignments},
    {"setn", assignments, assignments},
    {"modify", assignments, assignments},
    {"update", assignments, assignments},
    {"add", assignments, assignments},
    {"remove", assignments, assignments},
    {"insert", assignments, assignments},
    {"plan", assignments, assignments, "-a -j"},
    {"commit", assignments, assignments, "-a -c: -j -m: -n -s"},
    {"diff", names, names, "-j", "saved default running"},
    {"confirm", nothing, nothing, "-c: -j"},
    {"abort", nothing, nothing, "-j"},
    {"rollback", nothing, nothing, "-c: -j -m: -n"},
    {"history", names, names, "-j -n:"},
    {"default", names, names, kAskedFirst},
    {"factory_reset", nothing, nothing, kAskedFirst, "all network nonetwork"},
    {"help", help_topics, help_topics},
    {"login", users, nothing, "--keep"},
    {"logout", nothing, nothing},
    {"sessions", nothing, nothing},
    {"get_session", nothing, nothing},
    {"import", nothing, nothing, kFileHere},
    {"export", nothing, names, kFileHere},
    {"watch", names, names, "-e: -t --json"},
    {"find", nothing, nothing},
    {"version", nothing, nothing},
    {"failures", names, names, "-j"},
    {"describe", names, names},
    {"pages", nothing, nothing},
    {"pending", names, names},
    {"stats", nothing, nothing},
    {"completion", nothing, nothing, "", "bash fish zsh"},
    {"meta.get", names, names},
    {"user.add", nothing, user_groups},
    {"user.mod", users, user_groups},
    {"user.passwd", users, nothing},
    {"user.rem", users, nothing},
    {"user.export", nothing, nothing, kFileHere},
    {"user.import", nothing, nothing, kFileHere},
    {"user.default", users, nothing, kAskedFirst},
    {"group.rem", user_groups, nothing},
    {"preset.load", preset_numbers, nothing},
    {"preset.load_apply", preset_numbers, nothing},
    {"preset.load_name", preset_names, nothing},
    {"preset.load_apply_name", preset_names, nothing},
    {"preset.store", preset_numbers, nothing, kAskedFirst},
    {"preset.info", preset_numbers, nothing},
    {"preset.get", preset_numbers, nothing, "", "current"},
    {"preset.set", preset_numbers, nothing, kAskedFirst},
    {"preset.save", preset_numbers, nothing},
    {"preset.read", preset_numbers, nothing},
    {"preset.import", nothing, nothing, "-l: -y"},
    {"preset.export", nothing, nothing, kFileHere},
    {"profile.read", profiles, nothing},
    {"profile.load", profiles, nothing},
    {"profile.save", profiles, names},
    {"profile.copy", profiles, profiles},
    {"profile.remove", profiles, nothing},
    {"profile.export", profiles, nothing, kFileHere},
    {"profile.import", profiles, nothing, kFileHere},
    {"profile.reset", nothing, nothing, kAskedFirst},
};

bool is_listed(std::string_view word, std::string_view list)
{
    return (" " + std::string(list) + " ").find(" " + std::string(word) + " ") != std::string::npos;
}

} // namespace

bool CommandShape::has_argument(std::string_view option) const
{
    return is_listed(std::string(option) + ":", options);
}

bool CommandShape::has_word(std::string_view word) const
{
    return !word.empty() && is_listed(word, words);
}

CommandShape shape_of(const Words &words)
{
    const Words whole = with_subcommand(words);
    const auto *row = std::ranges::find(kShapes, std::string_view(whole.at(0)), &CommandShape::command);
    if (row != std::end(kShapes))
        return *row;
    const KnownCommand *known = find_command(whole);
    const Takes all = known && !known->subcommands.empty() ? nothing : names;
    return {known ? known->name : std::string_view(), all, all};
}

Words with_subcommand(Words words)
{
    const KnownCommand *command = find_command(words);
    if (!command || words.size() < 2 || words[0].find('.') != std::string::npos)
        return words;
    const std::string sub = subcommand_of(*command, words);
    if (sub.empty())
        return words;
    words.erase(words.begin() + 1);
    words[0] += "." + sub;
    return words;
}

} // namespace qvcd::client

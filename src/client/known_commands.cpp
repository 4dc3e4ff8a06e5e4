#include "client/known_commands.h"

#include <algorithm>

namespace qvcd::client {

namespace {

// Those of the daemon's table in its order, then the client's own. A daemon of another release may have more.
constexpr KnownCommand kCommands[] = {
    {"help", "cmd api apihdf"},
    {"get"},
    {"geti"},
    {"getv"},
    {"getd"},
    {"getdv"},
    {"set"},
    {"sets"},
    {"seta"},
    {"setn"},
    {"apply"},
    {"save"},
    {"modify"},
    {"update"},
    {"introspect"},
    {"browse"},
    {"preset", "current check load load_name load_apply load_apply_name store info get set save read import "
               "export"},
    {"profile", "list read load save copy remove reset export import"},
    {"add"},
    {"remove"},
    {"revert"},
    {"reload"},
    {"export"},
    {"import"},
    {"document"},
    {"checkmod"},
    {"checkapp"},
    {"checkdef"},
    {"meta", "get dump"},
    {"metav"},
    {"user", "list add passwd rem mod import export default"},
    {"group", "list add rem"},
    {"menu", "get getload firstrun reload"},
    {"login"},
    {"logout"},
    {"sessions"},
    {"get_session"},
    {"default"},
    {"factory_reset"},
    {"insert"},
    {"delete"},
    {"plan"},
    {"diff"},
    {"commit"},
    {"confirm"},
    {"abort"},
    {"history"},
    {"rollback"},
    {"failures"},
    {"version"},
    {"events"},
    {"describe"},
    {"pages"},
    {"pending"},
    {"stats"},
    {"watch"},
    {"completion"},
    {"tree"},
    {"find"},
    {"edit"},
};

bool has_word(std::string_view list, std::string_view word)
{
    const std::size_t at = (" " + std::string(list) + " ").find(" " + std::string(word) + " ");
    return !word.empty() && at != std::string::npos;
}

} // namespace

std::span<const KnownCommand> known_commands()
{
    return kCommands;
}

const KnownCommand *find_command(const Words &words)
{
    const std::string_view name = std::string_view(words.at(0)).substr(0, words[0].find('.'));
    const auto *row = std::ranges::find(kCommands, name, &KnownCommand::name);
    return row == std::end(kCommands) ? nullptr : row;
}

std::string subcommand_of(const KnownCommand &command, const Words &words)
{
    if (command.subcommands.empty())
        return {};
    if (const std::size_t dot = words[0].find('.'); dot != std::string::npos)
        return words[0].substr(dot + 1);
    // "help" is followed by what one wants to know of; the client makes commands of that.
    return words.size() > 1 && command.name != "help" ? words[1] : std::string();
}

bool is_for_administrators(const Words &words)
{
    static constexpr std::string_view kNames[] = {"help", "meta", "user", "group", "menu", "preset"};
    const KnownCommand *const command = find_command(words);
    return command && std::ranges::count(kNames, command->name) != 0;
}

bool is_known_command(const Words &words)
{
    const KnownCommand *const command = find_command(words);
    if (!command)
        return false;
    const std::string sub = subcommand_of(*command, words);
    return sub.empty() || sub == "help" || has_word(command->subcommands, sub);
}

} // namespace qvcd::client

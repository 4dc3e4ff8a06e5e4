#include "client/command_check.h"

#include <algorithm>
#include <sstream>

#include "client/completion.h"
#include "client/errors.h"
#include "client/known_commands.h"
#include "client/nearest.h"
#include "client/plain_command.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostProposals = 3;

std::string reply_of(const Options &options, const std::string &line)
{
    std::string text;
    ask(options.endpoint, options.session, {line}, options.limits("help"),
        [&](std::string_view reply) { text.append(reply).append("\n"); });
    return text;
}

[[noreturn]] void refuse(const std::string &word, const std::vector<std::string> &candidates)
{
    throw UsageError("unknown command '" + word + "'" +
                     did_you_mean(nearest(word, candidates, kMostProposals)));
}

std::vector<std::string> names_known_here()
{
    std::vector<std::string> names;
    for (const KnownCommand &row : known_commands())
        names.emplace_back(row.name);
    return names;
}

// Another release may have more sub-commands; its page names them all.
void check_subcommand(const Options &options, const KnownCommand &command, const std::string &sub)
{
    const std::string name(command.name);
    const std::string whole = name + "." + sub;
    std::vector<std::string> all = parse_subcommands(reply_of(options, "help.cmd " + name));
    if (std::ranges::count(all, whole) != 0)
        return;
    if (all.empty()) { // who asks may not see the page
        std::istringstream words{std::string(command.subcommands)};
        for (std::string word; words >> word;)
            all.push_back(name + "." + word);
    }
    const std::vector<std::string> near = nearest(whole, all, kMostProposals);
    if (!near.empty())
        refuse(whole, near);
    std::string list;
    for (const std::string &one : all)
        list += (list.empty() ? "" : ", ") + one;
    throw UsageError("unknown command '" + whole + "' (there are " + list + ")");
}

} // namespace

void check_command(const Options &options, const Words &words)
{
    if (const auto word = unset_word(words))
        throw UsageError(words[0] + " needs NAME=VALUE" +
                         (word->empty() ? "" : ", and '" + *word + "' is none"));
    if (is_known_command(words))
        return;
    if (const KnownCommand *const command = find_command(words))
        return check_subcommand(options, *command, subcommand_of(*command, words));
    const std::string name = words[0].substr(0, words[0].find('.'));
    std::vector<std::string> names = parse_command_list(reply_of(options, "help.cmd"));
    if (std::ranges::count(names, name) != 0)
        return;
    const std::vector<std::string> own = names_known_here();
    names.insert(names.end(), own.begin(), own.end());
    refuse(url_escape(words[0]), names);
}

} // namespace qvcd::client

#include "client/local_commands.h"

#include <cstdio>

#include "client/advice.h"
#include "client/answer.h"
#include "client/careful.h"
#include "client/command_check.h"
#include "client/command_pages.h"
#include "client/command_shapes.h"
#include "client/given_values.h"
#include "client/name_globs.h"
#include "client/nearest.h"
#include "client/person.h"
#include "client/reply.h"
#include "client/transfer.h"
#include "client/user_passwords.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

// Words that the daemon takes as a sub-command after "help".
bool is_help_subcommand(std::string_view word)
{
    return word == "cmd" || word == "api" || word == "apihdf";
}

// Of commands that were asked about; "help.cmd" and the like give what the daemon says alone.
std::vector<std::string> own_pages(const Words &words)
{
    std::vector<std::string> lines;
    for (std::size_t i = 1; i < words.size() && !is_help_subcommand(words[1]); ++i) {
        const std::vector<std::string> page = command_page(words[i].substr(0, words[i].find('.')));
        lines.insert(lines.end(), page.begin(), page.end());
    }
    return lines;
}

int run_help(const Options &options, const Words &words)
{
    Answer answer(options, words);
    bool said_something = false;
    const int result = ask(options.endpoint, options.session, help_lines(words), options.limits(words[0]),
                           [&](std::string_view line) {
                               said_something = true;
                               answer.take(line);
                           });
    for (const std::string &line : own_pages(words)) {
        said_something = true;
        answer.take(line);
    }
    const int status = answer.end(result);
    if (said_something || status != 0)
        return status;
    std::fprintf(stderr, "qvc: the daemon has no help on this%s\n",
                 did_you_mean(topics_like(options, words.back())).c_str());
    return 1;
}

} // namespace

std::vector<std::string> help_lines(const Words &words)
{
    if (words.size() == 1)
        return {"help.cmd"};
    if (is_help_subcommand(words[1]))
        return {wire_line(words)};
    std::vector<std::string> lines;
    for (std::size_t i = 1; i < words.size(); i++) {
        lines.push_back(
            wire_line({"help.cmd", words[i].substr(0, words[i].find('.'))})); // "user.add" as well
        lines.push_back(wire_line({"help.api", words[i]}));
    }
    return lines;
}

bool is_client_only(const std::string &command)
{
    const LocalCommand local = local_command(command);
    return local == LocalCommand::watch || local == LocalCommand::completion;
}

int run_command(const Options &options, const Words &typed)
{
    check_command(options, typed);
    Words words = typed;
    if (!is_wanted(options, words))
        return 1;
    words = options.json ? in_json(words) : words;
    if (local_command(words.at(0)) != LocalCommand::watch) // there patterns are for what is to come, too
        words = with_names(options, words);
    words = with_given_values(options, std::move(words));
    switch (local_command(words.at(0))) {
    case LocalCommand::help:
        return run_help(options, words);
    case LocalCommand::login:
        return run_login(options, words);
    case LocalCommand::logout:
        return run_logout(options, words);
    case LocalCommand::tree:
        return run_tree(options, words);
    case LocalCommand::find:
        return run_find(options, words);
    case LocalCommand::edit:
        return run_edit(options, words);
    case LocalCommand::version:
        return run_version(options, words);
    case LocalCommand::watch:
        if (options.json && words.size() == 1)
            words.emplace_back("--json");
        return run_watch(options, words);
    case LocalCommand::completion:
        return run_completion(options, words);
    case LocalCommand::none:
        break;
    }
    if (is_transfer_command(words))
        return run_transfer(options, words);
    if (lacks_password(words))
        return set_user_password(options, words);
    if (with_subcommand(words)[0] == "user.add" && is_typed())
        return add_user(options, words);
    return is_change_command(words[0]) ? run_change(options, words) : run_on_daemon(options, words);
}

int run_on_daemon(const Options &options, const Words &words)
{
    Answer answer(options, words);
    const int result = ask(options.endpoint, options.session, {command_line(words)}, options.limits(words[0]),
                           [&](std::string_view line) { answer.take(line); });
    return answer.end(result);
}

} // namespace qvcd::client

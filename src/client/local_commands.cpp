#include "client/local_commands.h"

#include <algorithm>
#include <cstdio>

#include "client/command_check.h"
#include "client/reply.h"
#include "client/transfer.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"

namespace qvcd::client {

namespace {

// Words that the daemon takes as a sub-command after "help".
bool is_help_subcommand(std::string_view word)
{
    return word == "cmd" || word == "api" || word == "apihdf";
}

int run_help(const Options &options, const Words &words)
{
    bool said_something = false;
    const int result = ask(options.endpoint, options.session, help_lines(words), options.limits(words[0]),
                           [&](std::string_view line) {
                               said_something = true;
                               print_line(line);
                           });
    if (said_something || result != 0)
        return exit_status(result);
    std::fprintf(stderr, "qvc: the daemon has no help on this\n");
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
    const Words words = options.json ? in_json(typed) : typed;
    switch (local_command(words.at(0))) {
    case LocalCommand::help:
        return run_help(options, words);
    case LocalCommand::login:
        return run_login(options, words);
    case LocalCommand::watch:
        return run_watch(options, words);
    case LocalCommand::completion:
        return run_completion(options, words);
    case LocalCommand::none:
        break;
    }
    if (is_transfer_command(words))
        return run_transfer(options, words);
    return is_change_command(words[0]) ? run_change(options, words) : run_on_daemon(options, words);
}

int run_on_daemon(const Options &options, const Words &words)
{
    std::vector<std::string> lines; // whether they hold errors depends on the result
    const int result = ask(options.endpoint, options.session, {command_line(words)}, options.limits(words[0]),
                           [&](std::string_view line) {
                               print_line(line);
                               if (options.strict && parse_reply_line(line).error)
                                   lines.emplace_back(line);
                           });
    const bool failed = std::ranges::any_of(
        lines, [&](const std::string &line) { return says_error(words[0], result, line); });
    return failed && result == 0 ? 1 : exit_status(result);
}

} // namespace qvcd::client

#include "client/local_commands.h"

#include <algorithm>
#include <cstdio>

#include "client/errors.h"
#include "client/escape.h"

namespace qvcd::client {

namespace {

int run_help(const Options &options, const Words &words);

struct LocalCommand {
    std::string_view name;
    int (*run)(const Options &options, const Words &words);
    bool client_only; // never a line of a command connection
};

constexpr LocalCommand kLocalCommands[] = {
    {"help", run_help, false},
    {"login", run_login, false},
    {"watch", run_watch, true},
    {"completion", run_completion, true},
};

const LocalCommand *find_local_command(std::string_view name)
{
    const auto *row = std::ranges::find(kLocalCommands, name, &LocalCommand::name);
    return row == std::end(kLocalCommands) ? nullptr : row;
}

// Words that the daemon takes as a sub-command after "help".
bool is_help_subcommand(std::string_view word)
{
    return word == "cmd" || word == "api" || word == "apihdf";
}

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

int run_help(const Options &options, const Words &words)
{
    bool said_something = false;
    const int result = ask(options.endpoint, options.session, help_lines(words), options.timeout,
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

std::vector<std::string> wire_lines(const Words &words)
{
    return words.at(0) == "help" ? help_lines(words) : std::vector<std::string>{wire_line(words)};
}

bool is_client_only(const std::string &command)
{
    const LocalCommand *local = find_local_command(command);
    return local && local->client_only;
}

int run_command(const Options &options, const Words &words)
{
    const LocalCommand *local = find_local_command(words.at(0));
    return local ? local->run(options, words) : run_on_daemon(options, words);
}

int run_on_daemon(const Options &options, const Words &words)
{
    constexpr std::size_t kMostArguments = 99; // the daemon drops further ones without a word
    if (words.size() > kMostArguments + 1)
        std::fprintf(stderr, "qvc: the daemon takes only the first %zu arguments\n", kMostArguments);
    return exit_status(
        ask(options.endpoint, options.session, {wire_line(words)}, options.timeout, print_line));
}

int exit_status(int result)
{
    const int low_byte = result & 0xff;
    return result != 0 && low_byte == 0 ? 1 : low_byte;
}

} // namespace qvcd::client

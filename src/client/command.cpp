#include "client/command.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "client/errors.h"
#include "qvclient/escape.h"

namespace qvcd::client {

LocalCommand local_command(std::string_view name)
{
    static constexpr std::pair<std::string_view, LocalCommand> kNames[] = {
        {"help", LocalCommand::help},     {"login", LocalCommand::login},
        {"watch", LocalCommand::watch},   {"completion", LocalCommand::completion},
        {"tree", LocalCommand::tree},     {"find", LocalCommand::find},
        {"edit", LocalCommand::edit},     {"version", LocalCommand::version},
        {"logout", LocalCommand::logout},
    };
    const auto *row = std::ranges::find(kNames, name, &std::pair<std::string_view, LocalCommand>::first);
    return row == std::end(kNames) ? LocalCommand::none : row->second;
}

bool is_change_command(std::string_view name)
{
    static constexpr std::string_view kNames[] = {"plan",  "diff",    "commit",   "confirm",
                                                  "abort", "history", "rollback", "failures"};
    return std::ranges::count(kNames, name) != 0;
}

bool is_transfer_command(const Words &words)
{
    const auto is_one = [](std::string_view word) { return word == "import" || word == "export"; };
    const std::string_view name = words.at(0);
    const std::size_t dot = name.find('.');
    if (dot != std::string_view::npos)
        return is_one(name.substr(dot + 1));
    return is_one(name) || (words.size() > 1 && is_one(words[1]) &&
                            (name == "user" || name == "preset" || name == "profile"));
}

Words in_json(Words words)
{
    if (is_change_command(words.at(0)))
        words.insert(words.begin() + 1, "-j");
    return words;
}

bool has_glob(std::string_view argument)
{
    return argument.substr(0, argument.find('=')).find_first_of("*?[") != std::string_view::npos;
}

std::string command_line(const Words &words)
{
    constexpr std::size_t kMostArguments = 99; // the daemon drops further ones without a word
    if (words.size() > kMostArguments + 1)
        std::fprintf(stderr, "qvc: the daemon takes only the first %zu arguments\n", kMostArguments);
    return wire_line(words);
}

int exit_status(int result)
{
    const int low_byte = result & 0xff;
    return result != 0 && low_byte == 0 ? 1 : low_byte;
}

} // namespace qvcd::client

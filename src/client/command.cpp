#include "client/command.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "client/escape.h"

namespace qvcd::client {

LocalCommand local_command(std::string_view name)
{
    static constexpr std::pair<std::string_view, LocalCommand> kNames[] = {
        {"help", LocalCommand::help},
        {"login", LocalCommand::login},
        {"watch", LocalCommand::watch},
        {"completion", LocalCommand::completion},
    };
    const auto *row = std::ranges::find(kNames, name, &std::pair<std::string_view, LocalCommand>::first);
    return row == std::end(kNames) ? LocalCommand::none : row->second;
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

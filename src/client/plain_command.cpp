#include "client/plain_command.h"

#include <algorithm>
#include <array>
#include <unistd.h>

namespace qvcd::client {

namespace {

// Some of their commands destroy what took work (client/careful.h), or take passwords.
bool is_of_careful_family(std::string_view command)
{
    static constexpr std::array<std::string_view, 5> kFamilies{"factory_reset", "default", "user", "profile",
                                                               "preset"};
    return std::ranges::count(kFamilies, command.substr(0, command.find('.'))) != 0;
}

} // namespace

bool is_plain(const Words &words)
{
    if (std::ranges::any_of(words, is_special_value))
        return false;
    return !is_of_careful_family(words.at(0)) ||
           (!words[0].starts_with("user") && !isatty(STDIN_FILENO) && std::ranges::count(words, "-y") == 0);
}

bool is_special_value(std::string_view argument)
{
    const std::size_t equals = argument.find('=');
    if (equals == std::string_view::npos)
        return false;
    std::string_view value = argument.substr(equals + 1);
    value.remove_prefix(std::min(value.find_first_not_of('\\'), value.size()));
    return value == "?" || value == "-" || value.starts_with('@');
}

} // namespace qvcd::client

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
    if (std::ranges::any_of(words, is_special_value) || unset_word(words))
        return false;
    return !is_of_careful_family(words.at(0)) ||
           (!words[0].starts_with("user") && !isatty(STDIN_FILENO) && std::ranges::count(words, "-y") == 0);
}

bool is_applying(const Words &words)
{
    static constexpr std::array<std::string_view, 4> kCommands{"apply", "update", "preset.load_apply",
                                                               "preset.load_apply_name"};
    return std::ranges::count(kCommands, std::string_view(words.at(0))) != 0;
}

std::optional<std::string> unset_word(const Words &words)
{
    static constexpr std::array<std::string_view, 9> kSetters{"set",    "sets",   "seta",   "setn",  "add",
                                                              "remove", "insert", "modify", "update"};
    const auto *const setter = std::ranges::find(kSetters, std::string_view(words.at(0)));
    if (setter == kSetters.end())
        return std::nullopt;
    if (words.size() == 1) // modify and update save what was set before
        return setter < kSetters.end() - 2 ? std::optional<std::string>("") : std::nullopt;
    const auto word = std::find_if(words.begin() + 1, words.end(), [](const std::string &argument) {
        return argument.find('=') == std::string::npos;
    });
    return word == words.end() ? std::nullopt : std::optional(*word);
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

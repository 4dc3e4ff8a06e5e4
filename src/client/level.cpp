#include "client/level.h"

#include <algorithm>
#include <array>

#include "client/command_shapes.h"
#include "client/known_commands.h"

namespace qvcd::client {

namespace {

// Without a name they mean all settings.
constexpr std::array<std::string_view, 18> kMeanAll{
    "get",    "geti",   "getv",     "getd",     "getdv",    "introspect", "browse", "apply", "save",
    "revert", "reload", "checkmod", "checkapp", "checkdef", "default",    "diff",   "tree",  "history"};

// "A,B" is a list of names.
std::string whole_names(std::string_view level, std::string_view typed)
{
    std::string whole;
    for (;;) {
        const std::size_t end = std::min(typed.find(','), typed.size());
        if (const std::string_view name = typed.substr(0, end); !name.empty())
            whole += whole_name(level, name);
        if (end == typed.size())
            return whole;
        whole += ',';
        typed.remove_prefix(end + 1);
    }
}

std::string whole_argument(std::string_view level, Takes takes, const std::string &word)
{
    switch (takes) {
    case Takes::names:
        return whole_names(level, word);
    case Takes::assignments:
        return word.find('=') == std::string::npos ? word : whole_name(level, word);
    case Takes::help_topics:
        return find_command({word}) ? word : whole_name(level, word);
    default:
        return word;
    }
}

} // namespace

std::string whole_name(std::string_view level, std::string_view typed)
{
    if (typed.starts_with('.'))
        return std::string(typed.substr(1));
    std::string name(level);
    if (!name.empty() && !typed.empty())
        name += '.';
    return name.append(typed);
}

Words in_level(std::string_view level, Words words)
{
    const CommandShape shape = shape_of(words);
    words = with_subcommand(std::move(words));
    Words whole{words.at(0)};
    std::size_t argument = 0;
    bool says_what = false;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string &word = words[i];
        if (word.starts_with('-')) {
            whole.push_back(word);
            if (shape.has_argument(word) && i + 1 < words.size())
                whole.push_back(words[++i]);
        } else if (argument == 0 && shape.has_word(word)) {
            whole.push_back(word);
        } else {
            says_what = true;
            std::string name = whole_argument(level, shape.takes(argument++), word);
            if (!name.empty() || word.empty()) // "." alone is the top
                whole.push_back(std::move(name));
        }
    }
    if (!level.empty() && !says_what && std::ranges::count(kMeanAll, whole[0]) != 0)
        whole.emplace_back(level);
    return whole;
}

std::string level_behind(std::string_view level, std::string_view typed)
{
    if (typed == "..") {
        const std::size_t dot = level.rfind('.');
        return std::string(level.substr(0, dot == std::string_view::npos ? 0 : dot));
    }
    while (typed.size() > 1 && typed.ends_with('.'))
        typed.remove_suffix(1);
    return whole_name(level, typed);
}

} // namespace qvcd::client

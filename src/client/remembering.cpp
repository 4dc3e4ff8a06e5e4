#include "client/remembering.h"

#include <algorithm>

#include "client/command_shapes.h"
#include "client/level.h"
#include "client/password_type.h"

namespace qvcd::client {

namespace {

// Of commands that take a password, or the number of a session.
bool holds_secret(const Words &words)
{
    const std::string command = with_subcommand(words)[0];
    const std::size_t arguments = with_subcommand(words).size() - 1;
    if (command == "login" || command == "user.passwd")
        return arguments > 1;
    if (command == "user.add")
        return arguments > 2;
    return (command == "logout" || command == "get_session") && arguments > 0;
}

bool is_only_spoken_of(std::string_view value)
{
    return value == "?" || value == "-" || value.starts_with('@');
}

// The settings whose values stand in the line.
std::vector<std::string> assigned_names(const std::string &level, const Words &words)
{
    const CommandShape shape = shape_of(words);
    std::vector<std::string> names;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::size_t equals = words[i].find('=');
        if (shape.has_argument(words[i]))
            ++i;
        else if (equals != std::string::npos &&
                 !is_only_spoken_of(std::string_view(words[i]).substr(equals + 1)))
            names.push_back(whole_name(level, words[i].substr(0, equals)));
    }
    return names;
}

} // namespace

Remember how_to_remember(const Options &options, const std::string &level, const std::vector<Step> &steps)
{
    std::vector<std::string> names;
    for (const Step &step : steps) {
        if (holds_secret(step.words))
            return Remember::nowhere;
        std::ranges::move(assigned_names(level, step.words), std::back_inserter(names));
    }
    switch (kind_of(options, names)) {
    case Kind::open:
        return Remember::for_good;
    case Kind::password:
        return Remember::nowhere;
    default:
        return Remember::here;
    }
}

} // namespace qvcd::client

#pragma once

#include <string_view>

#include "client/command.h"

namespace qvcd::client {

/// What an argument of a command is.
enum class Takes {
    nothing, ///< that the client knows of
    names,   ///< of settings or groups of them
    assignments,
    help_topics,
    users,
    user_groups,
    preset_numbers,
    preset_names,
    profiles,
};

struct CommandShape {
    std::string_view command; ///< with its sub-command: "user.passwd"
    Takes first = Takes::nothing;
    Takes others = Takes::nothing;
    std::string_view options = ""; ///< between blanks; those with an argument end in ":"
    std::string_view words = "";   ///< what else may stand in place of the first argument

    Takes takes(std::size_t argument) const { return argument == 0 ? first : others; }
    /// True for an option that the next word belongs to.
    bool has_argument(std::string_view option) const;
    bool has_word(std::string_view word) const;
};

/// Of the command that `words` (at least one) call. What is not known takes names.
CommandShape shape_of(const Words &words);

/// `words` with the sub-command at its command: "user passwd bob" is "user.passwd bob".
Words with_subcommand(Words words);

} // namespace qvcd::client

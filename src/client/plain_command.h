#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/command.h"

namespace qvcd::client {

/// True for a command whose words go to the daemon as they stand: no value is read or asked for, none is
/// missing, and nobody is asked before it is done.
bool is_plain(const Words &words);

/// True for a command that applies, and may leave some settings for the next apply.
bool is_applying(const Words &words);

/// Of a command that takes NAME=VALUE and nothing else the first argument that is none, or "" when there is
/// no argument at all and the command would do nothing.
std::optional<std::string> unset_word(const Words &words);

/// True for NAME=@FILE, NAME=- and NAME=?, and for those with backslashes in front of such a value.
bool is_special_value(std::string_view argument);

} // namespace qvcd::client

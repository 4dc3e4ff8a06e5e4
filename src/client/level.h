#pragma once

#include <string>
#include <string_view>

#include "client/command.h"

namespace qvcd::client {

// The group of settings that a person works in, so that names need not be typed whole: "Network.Interfaces",
// or empty for the top.

/// The whole name of one that was typed in `level`; one with a dot in front counts from the top.
std::string whole_name(std::string_view level, std::string_view typed);

/// `words` with whole names in place of typed ones. A command that stands without a name for all settings
/// gets the level as its name.
Words in_level(std::string_view level, Words words);

/// The level that "..", or the name of one, leads to.
std::string level_behind(std::string_view level, std::string_view typed);

} // namespace qvcd::client

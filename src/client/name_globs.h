#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// `words` with the names that match in place of patterns, where the command takes names: "*" and "?" stay
/// within one part of a name, a pattern of three parts matches groups and settings of three parts. In
/// NAME=VALUE only settings match. Asks the daemon for names only when there is a pattern. Throws UsageError
/// when nothing matches, or more than the command takes.
Words with_names(const Options &options, const Words &words);

/// The part that only reads: the names, of these settings and their groups, that the pattern matches.
std::vector<std::string> matching_names(std::string_view pattern, const std::vector<std::string> &apis,
                                        bool groups_too);

} // namespace qvcd::client

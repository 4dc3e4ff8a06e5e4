#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/options.h"

namespace qvcd::client {

/// What `qvc completion SHELL` prints.
struct CompletionScript {
    std::string_view shell;
    const char *text;
};
extern const CompletionScript kCompletionScripts[3];

/// What can stand in place of `word` after the words `before`, whose names count from the group `level`
/// (client/level.h): commands, sub-commands, setting names up to the next dot, values, files. Empty when the
/// daemon does not answer within a short time. After candidates that goes_on() no blank follows.
std::vector<std::string> complete(const Options &options, const std::vector<std::string> &before,
                                  const std::string &word, const std::string &level = "");

bool goes_on(const std::string &candidate);

// The parts of it that only read text.

/// The names in front of ": " of the lines of `help.cmd`.
std::vector<std::string> parse_command_list(std::string_view text);

/// "user.list" and so on from the SUB-COMMANDS section of a manual page.
std::vector<std::string> parse_subcommands(std::string_view page);

/// Of the names in front of "=" in `text` (the reply of browse), those that start with `prefix`, up to their
/// next dot, which stays; a whole name is followed by `end`. Sorted, each once.
std::vector<std::string> next_name_parts(std::string_view text, std::string_view prefix,
                                         std::string_view end);

} // namespace qvcd::client

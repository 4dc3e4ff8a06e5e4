#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/options.h"

namespace qvcd::client {

// Questions that qvc asks the daemon for the person at the prompt, who waits: two seconds at
// most, or as long as -t says, up to half a minute.

struct ShortAnswer {
    int result = 0;   ///< of the last command
    std::string text; ///< the reply lines, each with its newline

    std::vector<std::string> lines() const;
};

/// The answer to some commands, which go over one connection; nothing when there is none in that time.
std::optional<ShortAnswer> ask_shortly(const Options &options, const std::vector<std::string> &commands);

/// The text of the answer to one command with result 0, which may be a few seconds old; else empty.
std::string kept_answer(const Options &options, const std::string &command);

std::vector<std::string> lines_of(std::string_view text);

/// What follows "KEY=" in the first line that begins so.
std::optional<std::string> value_in(const std::vector<std::string> &lines, const std::string &key);

} // namespace qvcd::client

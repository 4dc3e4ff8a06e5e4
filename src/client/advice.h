#pragma once

#include <string>
#include <vector>

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// Says on standard error what would have been right, as far as the daemon tells within a short time: values
/// that a setting takes, names like one that is not found, why an action failed, that there is no such
/// session, how many settings an apply has left for the next. `refused`: the lines of the reply with errors;
/// `is_empty`: it had no line at all.
void advise(const Options &options, const Words &words, const std::vector<std::string> &refused,
            bool is_empty, int result);

/// "qvc: " and the text, on standard error.
void say_advice(const std::string &text);

/// Why the daemon may have answered nothing at all, as far as it tells within a short time; empty when that
/// is no wonder.
std::string reason_of_silence(const Options &options, const Words &words, int result);

/// Commands, settings and groups whose names are like this one.
std::vector<std::string> topics_like(const Options &options, const std::string &name);

/// What a setting takes (client/type_words.h), asked of the daemon.
std::string allowed_values(const Options &options, const std::string &name);

} // namespace qvcd::client

#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "client/wire.h"

namespace qvcd::client {

/// What the command line asks for.
struct Options {
    enum class Action { run, help, version };
    Action action = Action::run;
    Endpoint endpoint;
    int session = 0;
    std::chrono::milliseconds timeout = std::chrono::seconds{30};
    std::vector<std::string> words; ///< the command and its arguments; empty: read commands
};

/// Reads the arguments that follow the program's name. Options end at the command. Throws UsageError.
Options parse_options(const std::vector<std::string> &arguments);

/// The text of --help.
extern const char kUsage[];

/// The text of --version.
extern const char kVersion[];

} // namespace qvcd::client

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qvclient/wire.h"

namespace qvcd::client {

/// What the command line asks for.
struct Options {
    enum class Action { run, help, version };
    Action action = Action::run;
    Endpoint endpoint;
    int session = 0;
    bool session_given = false;   ///< with -s
    bool yes = false;             ///< -y: nothing is asked before it is done
    bool input_is_script = false; ///< standard input has the commands, and can be nothing else
    std::optional<std::chrono::milliseconds> timeout; ///< what -t says
    bool json = false;
    bool values_only = false;
    bool quiet = false;                  ///< errors only
    std::optional<int> said_result;      ///< the command has run and ended with this result, and only advice
    std::vector<std::string> said_lines; ///< on these lines of its reply is wanted (client/main.cpp)
    bool strict = false;                 ///< an error in a reply counts as a result that is not 0
    std::optional<std::string> script;   ///< the file to read commands from, "-": standard input
    bool keep_going = false;             ///< after a command that failed
    std::vector<std::string> words;      ///< the command and its arguments; empty: read commands
    std::string level;                   ///< the group from which names count at the prompt

    /// What a request with this command may take: what -t says, else what suits the command.
    TimeLimits limits(std::string_view command) const;
};

/// Reads the arguments that follow the program's name, and the environment variable QVC_SESSION. Options end
/// at the command. Throws UsageError.
Options parse_options(const std::vector<std::string> &arguments);

/// The session that a text names. Throws UsageError.
int session_number(const std::string &text);

/// The text of --help.
extern const char kUsage[];

/// The text of --version.
extern const char kVersion[];

} // namespace qvcd::client

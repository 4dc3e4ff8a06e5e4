#pragma once

#include "web/server.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qvcd::web {

/// What the command line says.
struct Options {
    std::vector<std::string> listen;
    std::string certificate, key; ///< files; empty: one of our own in the state folder
    std::string state_folder;
    std::string files;         ///< folder of the pages
    std::string socket_folder; ///< of the daemon; empty: the usual
    std::set<std::string> names;
    bool plain = false; ///< without TLS, on loopback only
    bool debug = false;
    int verbosity = 2;
    std::chrono::minutes idle{30};
    ServerLimits limits;
};

/// Nothing when the program ends with `status`.
std::optional<Options> parse_options(int argc, char **argv, int &status);

} // namespace qvcd::web

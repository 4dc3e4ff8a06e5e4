#pragma once

#include "client/options.h"

namespace qvcd::client {

/// Reads commands on a terminal, with line editing, history and TAB completion, until "quit", "exit" or the
/// end of the input. Each is a request of its own, so the daemon may be restarted meanwhile. Returns the exit
/// code of the last command.
int run_interactive(const Options &options);

} // namespace qvcd::client

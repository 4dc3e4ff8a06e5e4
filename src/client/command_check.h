#pragma once

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// Throws UsageError when a command that sets does not say what (client/plain_command.h), and when neither
/// this client nor the daemon knows the command or its sub-command: the daemon would answer nothing, or run
/// another sub-command. It is asked only about commands that this client was built without. Throws WireError
/// when it cannot be asked.
void check_command(const Options &options, const Words &words);

} // namespace qvcd::client

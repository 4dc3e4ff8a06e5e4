#pragma once

#include "client/options.h"

namespace qvcd::client {

/// Reads commands line by line from standard input, sends them over one connection, prints the replies as
/// they come and returns the result code of the last command, or kExitUsage when the last line was wrong.
/// Blank lines and lines that start with "#" are passed over. The time limit counts from the end of the
/// input. Throws WireError.
int run_batch(const Options &options);

} // namespace qvcd::client

#pragma once

#include "client/options.h"

namespace qvcd::client {

/// The main() of a client: reads the command line, answers --help and --version, has `run` do the rest and
/// turns what it throws into messages and exit codes. `arguments` ends with a null pointer, as argv.
int run_program(char **arguments, int (*run)(const Options &options, char **arguments));

} // namespace qvcd::client

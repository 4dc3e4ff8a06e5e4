#pragma once

#include "client/options.h"

namespace qvcd::client {

/// Reads commands line by line from the file options.script, or from standard input, runs each as
/// run_command() does and prints its reply before the next one. A command fails when its result is not 0 or
/// its reply holds an error (says_error()); the first that fails, or a line that is wrong, ends it, with the
/// place on stderr, unless options.keep_going. A daemon that cannot be reached ends it always. Returns the
/// exit status of the first that failed, else 0. Throws UsageError when the file cannot be read.
int run_batch(const Options &options);

} // namespace qvcd::client

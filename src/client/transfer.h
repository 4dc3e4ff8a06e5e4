#pragma once

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

// Documents that come from, or go to, this machine: export and import, and those of presets, profiles and
// users. A file that is named behind the command is the daemon's, as ever; "-" is standard input or output,
// and "-l FILE" a file here.

/// Runs one of these commands, prints its reply and returns the exit code. Throws UsageError and WireError.
int run_transfer(const Options &options, const Words &words);

/// The command as the daemon takes it, and what is here.
struct Transfer {
    Words words;
    enum class Way { none, here_to_daemon, daemon_to_here } way = Way::none;
    std::string file; ///< here; "-": the standard stream
};

/// What `words` ask for. `piped`: a file or a pipe is at standard input, or, for exports, output.
Transfer read_transfer(Words words, bool piped);

} // namespace qvcd::client

#pragma once

#include <optional>

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

struct LoginResult {
    int status; ///< exit status
    std::optional<int> session;
};

/// Logs in with the command `login USER [PASSWORD ...]`, asking for a password that is missing. Prints what
/// the daemon answers but the session's number. Throws UsageError and WireError.
LoginResult log_in(const Options &options, Words words);

/// Ends a session. Returns the exit status; says why when it is not 0.
int log_out(const Options &options, int session);

} // namespace qvcd::client

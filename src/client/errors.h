#pragma once

#include <stdexcept>

namespace qvcd::client {

// Exit codes of qvc's own; a command's result is handed on as it is.
inline constexpr int kExitUsage = 2;
inline constexpr int kExitNoDaemon = 124; // as timeout(1)

/// The command line is wrong; nothing was sent.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The daemon cannot be reached, does not answer in time or breaks off.
struct WireError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// interrupt_request() ended it.
struct Interrupted : WireError {
    using WireError::WireError;
};

} // namespace qvcd::client

#pragma once

#include <stdexcept>

namespace qvcd::client {

/// What is asked for cannot be said on the wire, or a file for TLS cannot be used; nothing was sent.
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

#pragma once

#include <stdexcept>

namespace qvcd::client {

/// What is asked for cannot be said on the wire; nothing was sent.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A file for TLS cannot be used; nothing was sent.
struct TlsFileError : UsageError {
    using UsageError::UsageError;
};

/// The daemon cannot be reached, does not answer in time or breaks off.
struct WireError : std::runtime_error {
    enum class Kind { unreachable, untrusted, timeout, broken };
    explicit WireError(const std::string &text, Kind what = Kind::broken) : runtime_error(text), kind(what) {}
    Kind kind;
};

/// interrupt_request() ended it.
struct Interrupted : WireError {
    using WireError::WireError;
};

} // namespace qvcd::client

#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "qvclient/wire.h"

namespace qvcd::client {

// Connections to any endpoint, TCP and TLS too. They throw as those of wire.h.

/// A connection that can be used. Throws TlsFileError when a file for TLS cannot.
Channel connect_to(const Endpoint &endpoint, std::chrono::milliseconds timeout);

/// ask() over a new connection.
int ask(const Endpoint &endpoint, const Caller &caller, const std::vector<std::string> &lines,
        TimeLimits limits, const LineSink &sink);

} // namespace qvcd::client

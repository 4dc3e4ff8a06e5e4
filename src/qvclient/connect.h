#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "qvclient/exchange.h"

namespace qvcd::client {

// Connections to any endpoint, TCP and TLS too. They throw as those of wire.h.

/// A connection that can be used. Throws TlsFileError when a file for TLS cannot.
Channel connect_to(const Endpoint &endpoint, std::chrono::milliseconds timeout);

/// exchange() and ask() over a new connection.
int exchange(const Endpoint &endpoint, const Caller &caller, Request request, TimeLimits limits,
             const LineSink &sink, const Watcher &watcher = {});
int ask(const Endpoint &endpoint, const Caller &caller, const std::vector<std::string> &lines,
        TimeLimits limits, const LineSink &sink);

} // namespace qvcd::client

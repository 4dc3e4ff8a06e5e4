#pragma once

#include "auth/trust.h"
#include "platform/line_server.h"
#include "platform/tls.h"

#include <chrono>
#include <memory>

namespace qvcd {

/// Starts to serve requests (docs/protocol.md) on the local endpoint "qvcd" and, for a port that is not 0,
/// over TCP on all addresses, to those whom `trust` trusts and, for what is open to strangers, to everybody;
/// with `tls` in TLS only. Trusts the group "qv" too. Returns 0, or -1 after reporting that the local
/// endpoint cannot be served; of TCP that is reported only.
int socket_init(int port, Trust trust, std::shared_ptr<const TlsContext> tls, ServerLimits limits);

/// A new connection to ourselves, which counts as this peer's; the socket does not block. Empty, with errno
/// set, when there is none. Thread-safe, between socket_init() and socket_exit().
Fd socket_open(Peer peer);

/// Ends all connections and waits for the requests that run. False when one did not end in time.
bool socket_exit(std::chrono::milliseconds patience = std::chrono::seconds{2});

} // namespace qvcd

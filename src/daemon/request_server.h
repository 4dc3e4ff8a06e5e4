#pragma once

#include "platform/server.h"

namespace qvcd {

inline constexpr int kServerSlots = 10;

/// Starts the local server "qvcd" and, for a port that is not 0, the TCP server on all addresses. Returns 0;
/// a server that cannot start has reported why.
int socket_init(int port);

/// Stops the servers. Returns 0.
int socket_exit();

/// Serves one connection: a line that identifies the caller (or asks "?" for a sign of life), command lines
/// up to an empty line, then the end mark "@" and the last command's result. See docs/protocol.md. Returns
/// that result.
int handle_request(ServerConnection &connection);

} // namespace qvcd

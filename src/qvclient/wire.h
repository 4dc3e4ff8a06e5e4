#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/channel.h"
#include "platform/fd.h"
#include "platform/socket.h"
#include "platform/tls.h"
#include "qvclient/limits.h"

namespace qvcd::client {

/// Where the daemon listens: its local sockets, or TCP when a host is given.
struct Endpoint {
    std::string host;
    std::string port;
    std::optional<TlsFiles> tls; ///< over TCP: speak TLS
    std::string folder;          ///< of the local sockets; empty: the appliance's

    /// What was made of `tls` for the first connection.
    mutable std::shared_ptr<const TlsContext> tls_context;

    bool local() const { return host.empty(); }
    std::string socket_path(std::string_view name) const; ///< of the local endpoint `name`
    std::string text() const;                             ///< for messages
};

/// Who asks: the first line of a connection.
struct Caller {
    Caller(int number = 0) : session(number) {}
    int session;
    std::string name = "qvc"; ///< one word
};

// All of these throw WireError when the daemon cannot be reached, breaks off, or the deadline passes.

/// A connected socket to the local socket at this path.
Fd connect_local(const std::string &path, std::chrono::milliseconds timeout);

/// What is left until the deadline, for poll(2); 0 when it has passed.
int milliseconds_left(Deadline deadline);

/// For a signal handler: what waits now gives up, until the next request begins.
void interrupt_request();
void begin_request();

/// Waits until one of the `events` of poll(2) has come; false when none is there at the deadline.
bool has_come(const Channel &channel, short events, Deadline deadline);

/// The same, but throws at the deadline.
void wait_for(const Channel &channel, short events, Deadline deadline);

/// Says why there is no connection to `where`: the errno of what failed.
[[noreturn]] void throw_unreachable(const std::string &where, int error);

} // namespace qvcd::client

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/channel.h"
#include "platform/fd.h"
#include "platform/socket.h"
#include "platform/tls.h"
#include "qvclient/limits.h"
#include "qvclient/reply.h"

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

/// Sends what the connection takes now and removes it from `text`. When the other side has closed, `text` is
/// dropped: what it answered before can still be read.
void send_some(Channel &channel, std::string &text);

/// Hands what has arrived to `parser`. Throws when the stream ends or breaks before the end of the reply.
enum class Came { something, nothing, end };
Came receive_some(Channel &channel, ReplyParser &parser);

std::string greeting(const Caller &caller);

/// Sends `lines` as the commands of one connection, hands the reply lines to `sink` as they come and returns
/// the result code of the last command. Only the end of the connection tells the end of the reply; when it
/// does not come although all else has come, the connection is lost, and the reply is taken as it is.
int ask(Channel channel, const Caller &caller, const std::vector<std::string> &lines, Deadline deadline,
        const LineSink &sink);

/// Waits until one of the `events` of poll(2) has come; false when none is there at the deadline.
bool has_come(const Channel &channel, short events, Deadline deadline);

/// The same, but throws at the deadline.
void wait_for(const Channel &channel, short events, Deadline deadline);

/// Says why there is no connection to `where`: the errno of what failed.
[[noreturn]] void throw_unreachable(const std::string &where, int error);

} // namespace qvcd::client

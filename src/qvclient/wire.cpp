#include "qvclient/wire.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include "platform/socket.h"
#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

constexpr char kTimeUp[] = "no answer within the time limit";

std::atomic<bool> interrupted{false}; // in all threads
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

std::string why(int error)
{
    return std::generic_category().message(error);
}

} // namespace

void throw_unreachable(const std::string &where, int error)
{
    if (error == EAGAIN || error == ETIMEDOUT)
        throw WireError("cannot reach the daemon at " + where + " within the time limit",
                        WireError::Kind::timeout);
    const std::string reason = error == EADDRNOTAVAIL ? "unknown host" : why(error);
    throw WireError("cannot reach the daemon at " + where + ": " + reason, WireError::Kind::unreachable);
}

bool has_come(const Channel &channel, short events, Deadline deadline)
{
    pollfd wanted{channel.fd(), events, 0};
    for (;;) {
        const int ready = poll(&wanted, 1, milliseconds_left(deadline));
        if (ready >= 0)
            return ready > 0;
        if (errno != EINTR)
            throw WireError("poll: " + why(errno));
        if (interrupted)
            throw Interrupted("interrupted");
    }
}

void wait_for(const Channel &channel, short events, Deadline deadline)
{
    if (!has_come(channel, events, deadline))
        throw WireError(kTimeUp, WireError::Kind::timeout);
}

std::string Endpoint::socket_path(std::string_view name) const
{
    return folder.empty() ? qv_ipc_socket_path(name) : folder + "/" + std::string(name) + ".sock";
}

std::string Endpoint::text() const
{
    if (local())
        return socket_path("qvcd");
    return host.find(':') == std::string::npos ? host + ":" + port : "[" + host + "]:" + port;
}

Fd connect_local(const std::string &path, std::chrono::milliseconds timeout)
{
    Fd socket = connect_unix(path, timeout);
    if (!socket)
        throw_unreachable(path, errno);
    return socket;
}

int milliseconds_left(Deadline deadline)
{
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::max(left.count(), std::chrono::milliseconds::rep{0}));
}

void interrupt_request()
{
    interrupted = true;
}

void begin_request()
{
    interrupted = false;
}

} // namespace qvcd::client

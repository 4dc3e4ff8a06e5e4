#include "qvclient/connect.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

std::unique_ptr<TlsStream> prepare_tls(const Endpoint &endpoint)
{
    try {
        if (!endpoint.tls_context)
            endpoint.tls_context = std::make_shared<TlsContext>(TlsContext::client(*endpoint.tls));
        return endpoint.tls_context->connect(endpoint.host);
    } catch (const TlsError &error) {
        throw TlsFileError(error.what());
    }
}

// A host that is gone, or has another address now, says nothing, and nothing tells that it is gone: a long
// wait for its answer must end.
void notice_lost_peer(int socket)
{
    constexpr int kOn = 1;
    constexpr int kSeconds = 4; // of silence before the first probe, and between two
    constexpr int kProbes = 4;
    ::setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &kOn, sizeof kOn);
    ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &kSeconds, sizeof kSeconds);
    ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPINTVL, &kSeconds, sizeof kSeconds);
    ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &kProbes, sizeof kProbes);
}

void shake_hands(Channel &channel, const std::string &where, Deadline deadline)
{
    while (!channel.handshake()) {
        if (errno == EAGAIN) {
            wait_for(channel, channel.read_events(), deadline);
            continue;
        }
        const std::string problem = channel.problem();
        const std::string distrust = channel.distrust();
        if (distrust.empty())
            throw WireError("no TLS with " + where + ": " + problem, WireError::Kind::untrusted);
        throw WireError("certificate of " + where + " is not trusted: " + distrust,
                        WireError::Kind::untrusted);
    }
}

} // namespace

Channel connect_to(const Endpoint &endpoint, std::chrono::milliseconds timeout)
{
    if (endpoint.local())
        return Channel(connect_local(endpoint.socket_path("qvcd"), timeout));
    const Deadline deadline = deadline_in(timeout);
    std::unique_ptr<TlsStream> ssl = endpoint.tls ? prepare_tls(endpoint) : nullptr;
    Fd socket = connect_tcp(endpoint.host, endpoint.port, timeout);
    if (!socket)
        throw_unreachable(endpoint.text(), errno);
    notice_lost_peer(socket.get());
    if (!ssl)
        return Channel(std::move(socket));
    Channel channel(std::move(socket), std::move(ssl));
    shake_hands(channel, endpoint.text(), deadline);
    return channel;
}

int exchange(const Endpoint &endpoint, const Caller &caller, Request request, TimeLimits limits,
             const LineSink &sink, const Watcher &watcher)
{
    begin_request();
    const Deadline deadline = deadline_in(limits.whole);
    return exchange(connect_to(endpoint, limits.connect), caller, std::move(request), deadline, sink,
                    watcher);
}

int ask(const Endpoint &endpoint, const Caller &caller, const std::vector<std::string> &lines,
        TimeLimits limits, const LineSink &sink)
{
    begin_request();
    const Deadline deadline = deadline_in(limits.whole);
    return ask(connect_to(endpoint, limits.connect), caller, lines, deadline, sink);
}

} // namespace qvcd::client

#include "client/connect.h"

#include <cerrno>

#include "client/errors.h"

namespace qvcd::client {

namespace {

std::unique_ptr<TlsStream> prepare_tls(const Endpoint &endpoint)
{
    try {
        return TlsContext::client(*endpoint.tls).connect(endpoint.host);
    } catch (const TlsError &error) {
        throw UsageError(error.what());
    }
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
            throw WireError("no TLS with " + where + ": " + problem);
        throw WireError("certificate of " + where + " is not trusted: " + distrust);
    }
}

} // namespace

Channel connect_to(const Endpoint &endpoint, std::chrono::milliseconds timeout)
{
    if (endpoint.local())
        return Channel(connect_local("qvcd", timeout));
    const Deadline deadline = deadline_in(timeout);
    std::unique_ptr<TlsStream> ssl = endpoint.tls ? prepare_tls(endpoint) : nullptr;
    Fd socket = connect_tcp(endpoint.host, endpoint.port, timeout);
    if (!socket)
        throw_unreachable(endpoint.text(), errno);
    if (!ssl)
        return Channel(std::move(socket));
    Channel channel(std::move(socket), std::move(ssl));
    shake_hands(channel, endpoint.text(), deadline);
    return channel;
}

int ask(const Endpoint &endpoint, int session, const std::vector<std::string> &lines,
        std::chrono::milliseconds timeout, const LineSink &sink)
{
    begin_request();
    const Deadline deadline = deadline_in(timeout);
    return ask(connect_to(endpoint, timeout), session, lines, deadline, sink);
}

} // namespace qvcd::client

#include "client/wire.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

#include "client/errors.h"
#include "platform/server.h"

namespace qvcd::client {

namespace {

constexpr char kTimeUp[] = "no answer within the time limit";

volatile std::sig_atomic_t interrupted = 0;

std::string why(int error)
{
    return std::generic_category().message(error);
}

timeval to_timeval(int milliseconds)
{
    // 0 would mean no limit.
    const int ms = std::max(milliseconds, 1);
    return {ms / 1000, (ms % 1000) * 1000};
}

// Connects with a time limit. A Unix socket whose queue is full cannot be polled for, so it blocks under
// SO_SNDTIMEO; returns 0 or the error.
int connect_blocking(int socket, const sockaddr_un &address, const Deadline &deadline)
{
    const timeval limit = to_timeval(deadline.milliseconds());
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    sockaddr_storage any{};
    std::memcpy(&any, &address, sizeof address);
    return connect(socket, reinterpret_cast<const sockaddr *>(&any), sizeof address) == 0 ? 0 : errno;
}

int connect_polled(const Fd &socket, const addrinfo &address, const Deadline &deadline)
{
    if (connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0)
        return 0;
    if (errno != EINPROGRESS)
        return errno;
    wait_for(socket, POLLOUT, deadline);
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList resolve(const Endpoint &endpoint)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *list = nullptr;
    const int error = getaddrinfo(endpoint.host.c_str(), endpoint.port.c_str(), &hints, &list);
    if (error != 0)
        throw WireError("cannot find " + endpoint.host + ": " + gai_strerror(error));
    return {list, freeaddrinfo};
}

Fd connect_tcp(const Endpoint &endpoint, const Deadline &deadline)
{
    const AddressList addresses = resolve(endpoint);
    int error = 0;
    for (const addrinfo *address = addresses.get(); address; address = address->ai_next) {
        Fd socket(::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        error = socket ? connect_polled(socket, *address, deadline) : errno;
        if (error == 0)
            return socket;
    }
    throw WireError("cannot reach the daemon at " + endpoint.text() + ": " + why(error));
}

} // namespace

std::string Endpoint::text() const
{
    if (local())
        return qv_ipc_socket_path("qvcd");
    return host.find(':') == std::string::npos ? host + ":" + port : "[" + host + "]:" + port;
}

Deadline::Deadline(std::chrono::milliseconds patience) : end_(std::chrono::steady_clock::now() + patience) {}

int Deadline::milliseconds() const
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
    return static_cast<int>(std::max(left.count(), std::chrono::milliseconds::rep{0}));
}

Fd connect_to(const Endpoint &endpoint, const Deadline &deadline)
{
    return endpoint.local() ? connect_local("qvcd", deadline) : connect_tcp(endpoint, deadline);
}

Fd connect_local(const std::string &name, const Deadline &deadline)
{
    const std::string path = qv_ipc_socket_path(name);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw WireError("the path of the daemon's socket is too long: " + path);
    path.copy(address.sun_path, path.size());
    Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int error = socket ? connect_blocking(socket.get(), address, deadline) : errno;
    if (error == EAGAIN)
        throw WireError(kTimeUp);
    if (error != 0)
        throw WireError("cannot reach the daemon at " + path + ": " + why(error));
    return socket;
}

void interrupt_request()
{
    interrupted = 1;
}

void wait_for(const Fd &socket, short events, const Deadline &deadline)
{
    pollfd wanted{socket.get(), events, 0};
    for (;;) {
        const int left = deadline.milliseconds();
        const int ready = left > 0 ? poll(&wanted, 1, left) : 0;
        if (ready > 0)
            return;
        if (ready == 0)
            throw WireError(kTimeUp);
        if (errno != EINTR)
            throw WireError("poll: " + why(errno));
        if (interrupted != 0)
            throw WireError("interrupted");
    }
}

void send_some(const Fd &socket, std::string &text)
{
    const ssize_t sent = send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0)
        text.erase(0, static_cast<std::size_t>(sent));
    else if (errno == EPIPE || errno == ECONNRESET)
        text.clear();
    else if (errno != EAGAIN && errno != EINTR)
        throw WireError("cannot send: " + why(errno));
}

void receive_some(const Fd &socket, ReplyParser &parser)
{
    std::array<char, 65536> buffer;
    const ssize_t got = recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got > 0)
        parser.feed({buffer.data(), static_cast<std::size_t>(got)});
    else if (got == 0)
        throw WireError("the daemon closed the connection before the end of its reply");
    else if (errno != EAGAIN && errno != EINTR)
        throw WireError("the connection broke before the end of the reply: " + why(errno));
}

std::string greeting(int session)
{
    return "qvc " + std::to_string(session) + " " + std::to_string(getpid()) + "\n";
}

int ask(const Endpoint &endpoint, int session, const std::vector<std::string> &lines,
        const Deadline &deadline, const LineSink &sink)
{
    std::string request = greeting(session);
    for (const std::string &line : lines)
        request += line + "\n";
    request += "\n";

    interrupted = 0;
    const Fd socket = connect_to(endpoint, deadline);
    while (!request.empty()) {
        wait_for(socket, POLLOUT, deadline);
        send_some(socket, request);
    }
    ReplyParser parser(sink);
    while (!parser.result()) {
        wait_for(socket, POLLIN, deadline);
        receive_some(socket, parser);
    }
    return *parser.result();
}

} // namespace qvcd::client

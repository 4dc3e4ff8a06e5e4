#include "platform/ipc_client.h"

#include "platform/log.h"
#include "platform/server.h"
#include "platform/socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/socket.h>

namespace qvcd {

namespace {

constexpr char kGreeting[] = "qvcd 0 0\n";

// Plain file streams would raise SIGPIPE when the server is gone, hence streams of our own. Each owns a
// descriptor of the one socket.
int descriptor(const void *cookie)
{
    return static_cast<const Fd *>(cookie)->get();
}

ssize_t receive(void *cookie, char *bytes, std::size_t size)
{
    for (;;) {
        const ssize_t n = ::recv(descriptor(cookie), bytes, size, 0);
        if (n >= 0)
            return n;
        if (errno == EAGAIN) // the time is over
            return 0;
        if (errno != EINTR)
            return -1;
    }
}

// Each send waits for the socket's own time-out at most. 0 stands for an error, see fopencookie(3).
ssize_t transmit(void *cookie, const char *bytes, std::size_t size)
{
    std::size_t sent = 0;
    while (sent < size) {
        const ssize_t n = ::send(descriptor(cookie), bytes + sent, size - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return 0;
        sent += static_cast<std::size_t>(n);
    }
    return static_cast<ssize_t>(size);
}

int close_descriptor(void *cookie)
{
    delete static_cast<Fd *>(cookie);
    return 0;
}

std::FILE *open_stream(Fd fd, const char *mode)
{
    if (!fd)
        return nullptr;
    auto cookie = std::make_unique<Fd>(std::move(fd));
    std::FILE *stream = ::fopencookie(cookie.get(), mode, {&receive, &transmit, nullptr, &close_descriptor});
    if (stream)
        static_cast<void>(cookie.release()); // the stream's now
    return stream;
}

} // namespace

int qv_ipc_client_connect_single(std::string_view name, IpcClient &client, std::chrono::milliseconds timeout)
{
    client = {};
    Fd socket = connect_unix(qv_ipc_socket_path(name), timeout);
    if (!socket) {
        qv_log_print(kLogDebug, "cannot reach %.*s: %s\n", static_cast<int>(name.size()), name.data(),
                     std::strerror(errno));
        return -1;
    }
    set_receive_timeout(socket.get(), timeout);
    client.out = open_stream(Fd(::fcntl(socket.get(), F_DUPFD_CLOEXEC, 0)), "w");
    client.in = open_stream(std::move(socket), "r");
    if (client.in && client.out)
        return 0;
    qv_ipc_client_disconnect(client);
    return -1;
}

int qv_ipc_client_connect(std::string_view name, IpcClient &client, std::chrono::milliseconds timeout)
{
    if (qv_ipc_client_connect_single(name, client, timeout) != 0)
        return -1;
    std::fputs(kGreeting, client.out); // goes out with the first message
    return 0;
}

void qv_ipc_client_disconnect(IpcClient &client)
{
    if (client.out)
        std::fclose(client.out);
    if (client.in)
        std::fclose(client.in);
    client = {};
}

} // namespace qvcd

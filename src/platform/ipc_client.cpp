#include "platform/ipc_client.h"

#include "platform/log.h"
#include "platform/socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/socket.h>

namespace qvcd {

namespace {

// Plain file streams would raise SIGPIPE when the server is gone, and wait for as long as it likes, hence
// streams of our own. Each owns a descriptor of the one socket.
struct Half {
    Fd fd;
    Deadline deadline;
};

ssize_t receive(void *cookie, char *bytes, std::size_t size)
{
    const auto *half = static_cast<const Half *>(cookie);
    for (;;) {
        const int events = poll_until(half->fd.get(), POLLIN, half->deadline);
        if (events <= 0)
            return events; // 0, as at the end of the stream: the time is over
        const ssize_t n = ::recv(half->fd.get(), bytes, size, MSG_DONTWAIT);
        if (n >= 0 || (errno != EINTR && errno != EAGAIN))
            return n;
    }
}

// 0 stands for an error, see fopencookie(3).
ssize_t transmit(void *cookie, const char *bytes, std::size_t size)
{
    const auto *half = static_cast<const Half *>(cookie);
    std::size_t sent = 0;
    while (sent < size) {
        if (poll_until(half->fd.get(), POLLOUT, half->deadline) <= 0)
            return 0;
        const ssize_t n = ::send(half->fd.get(), bytes + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0)
            sent += static_cast<std::size_t>(n);
        else if (errno != EINTR && errno != EAGAIN)
            return 0;
    }
    return static_cast<ssize_t>(size);
}

int close_half(void *cookie)
{
    delete static_cast<Half *>(cookie);
    return 0;
}

std::FILE *open_stream(Fd fd, Deadline deadline, const char *mode)
{
    if (!fd)
        return nullptr;
    auto cookie = std::make_unique<Half>(Half{std::move(fd), deadline});
    std::FILE *stream = ::fopencookie(cookie.get(), mode, {&receive, &transmit, nullptr, &close_half});
    if (stream)
        static_cast<void>(cookie.release()); // the stream's now
    return stream;
}

} // namespace

int qv_ipc_client_connect_single(std::string_view name, IpcClient &client, std::chrono::milliseconds timeout)
{
    client = {};
    const Deadline deadline = deadline_in(timeout);
    Fd socket = connect_unix(qv_ipc_socket_path(name), timeout);
    if (!socket) {
        qv_log_print(kLogDebug, "cannot reach %.*s: %s\n", static_cast<int>(name.size()), name.data(),
                     std::strerror(errno));
        return -1;
    }
    client.out = open_stream(Fd(::fcntl(socket.get(), F_DUPFD_CLOEXEC, 0)), deadline, "w");
    client.in = open_stream(std::move(socket), deadline, "r");
    if (client.in && client.out)
        return 0;
    qv_ipc_client_disconnect(client);
    return -1;
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

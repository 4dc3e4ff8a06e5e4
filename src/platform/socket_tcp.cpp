#include "platform/socket.h"

#include "platform/log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace qvcd {

namespace {

void set_option(int fd, int level, int option, int value)
{
    ::setsockopt(fd, level, option, &value, sizeof value);
}

Fd connect_address(const addrinfo &address, Deadline deadline)
{
    Fd fd(
        ::socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address.ai_protocol));
    if (!fd)
        return Fd();
    int error = 0;
    if (::connect(fd.get(), address.ai_addr, address.ai_addrlen) != 0) {
        error = errno;
        if (error == EINPROGRESS) {
            socklen_t size = sizeof error;
            if (poll_until(fd.get(), POLLOUT, deadline) <= 0)
                error = ETIMEDOUT;
            else if (::getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0)
                error = errno;
        }
    }
    if (error != 0) {
        fd.reset();
        errno = error;
        return Fd();
    }
    ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
    set_option(fd.get(), IPPROTO_TCP, TCP_NODELAY, 1);
    return fd;
}

struct AddrinfoFree {
    void operator()(addrinfo *list) const noexcept { ::freeaddrinfo(list); }
};

} // namespace

Fd connect_tcp(const std::string &host, const std::string &port, std::chrono::milliseconds timeout)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
    addrinfo *found = nullptr;
    if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
        errno = EADDRNOTAVAIL;
        return Fd();
    }
    const std::unique_ptr<addrinfo, AddrinfoFree> list(found);
    const Deadline deadline = deadline_in(timeout);
    errno = EADDRNOTAVAIL;
    for (const addrinfo *a = list.get(); a; a = a->ai_next)
        if (Fd fd = connect_address(*a, deadline))
            return fd;
    return Fd();
}

Fd listen_tcp(const char *address, int port)
{
    const std::string where =
        "cannot serve TCP " + std::string(address) + " port " + std::to_string(port) + ": ";
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo *found = nullptr;
    if (port < 0 || port > 65535 ||
        ::getaddrinfo(address, std::to_string(port).c_str(), &hints, &found) != 0) {
        qv_report_failure(where + "no valid address and port");
        errno = EINVAL;
        return Fd();
    }
    const std::unique_ptr<addrinfo, AddrinfoFree> list(found);
    Fd fd(::socket(list->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd) {
        set_option(fd.get(), SOL_SOCKET, SO_REUSEADDR, 1);
        set_option(fd.get(), SOL_SOCKET, SO_KEEPALIVE,
                   1); // who listens to events may be gone, and say nothing
        set_option(fd.get(), IPPROTO_TCP, TCP_KEEPIDLE, 60);
        set_option(fd.get(), IPPROTO_TCP, TCP_KEEPINTVL, 15);
        set_option(fd.get(), IPPROTO_TCP, TCP_NODELAY, 1);
        if (::bind(fd.get(), list->ai_addr, list->ai_addrlen) == 0 && ::listen(fd.get(), SOMAXCONN) == 0)
            return fd;
    }
    const int error = errno;
    qv_report_failure(where + std::strerror(error));
    fd.reset();
    errno = error;
    return Fd();
}

} // namespace qvcd

#include "platform/socket.h"

#include "platform/sysroot.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace qvcd {

namespace {

using namespace std::chrono_literals;

void set_timeout(int fd, int option, std::chrono::milliseconds timeout)
{
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(timeout).count();
    timeval value{};
    value.tv_sec = static_cast<time_t>(us / 1000000);
    value.tv_usec = static_cast<suseconds_t>(us % 1000000);
    if (value.tv_sec == 0 && value.tv_usec == 0)
        value.tv_usec = 1; // 0 would mean "wait for ever"
    ::setsockopt(fd, SOL_SOCKET, option, &value, sizeof value);
}

} // namespace

std::optional<sockaddr_un> unix_address(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path || path.find('\0') != std::string::npos) {
        errno = ENAMETOOLONG;
        return std::nullopt;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

int poll_until(int fd, short events, Deadline deadline)
{
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd entry{fd, events, 0};
        const int n = ::poll(&entry, 1, left > 0ms ? static_cast<int>(left.count()) : 0);
        if (n > 0)
            return entry.revents;
        if (n == 0 && left <= 0ms)
            return 0;
        if (n < 0 && errno != EINTR)
            return -1;
    }
}

void set_receive_timeout(int fd, std::chrono::milliseconds timeout)
{
    set_timeout(fd, SO_RCVTIMEO, timeout);
}

void set_send_timeout(int fd, std::chrono::milliseconds timeout)
{
    set_timeout(fd, SO_SNDTIMEO, timeout);
}

bool send_all(int fd, std::string_view bytes, std::chrono::milliseconds patience)
{
    const auto write = [fd](std::string_view rest) {
        return ::send(fd, rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    };
    return write_all(fd, bytes, patience, write, [] { return short{POLLOUT}; });
}

Fd connect_unix(const std::string &path, std::chrono::milliseconds timeout)
{
    const auto address = unix_address(path);
    if (!address)
        return Fd();
    Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd)
        return Fd();
    set_send_timeout(fd.get(), timeout); // a full listen queue makes connect() wait
    if (::connect(fd.get(), as_sockaddr(&*address), sizeof *address) == 0)
        return fd;
    const int error = errno;
    fd.reset();
    errno = error;
    return Fd();
}

std::string qv_ipc_socket_path(std::string_view name)
{
    return qv_sysroot_path(std::string(kSocketFolder) + "/" + std::string(name) + ".sock");
}

bool qv_ipc_paths_fit()
{
    return unix_address(qv_ipc_socket_path("notify")).has_value();
}

} // namespace qvcd

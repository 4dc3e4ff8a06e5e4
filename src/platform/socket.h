#pragma once

#include "platform/fd.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

namespace qvcd {

// Sockets of the platform library. All are close-on-exec. A function that returns an empty Fd has set errno.

using Deadline = std::chrono::steady_clock::time_point;

inline Deadline deadline_in(std::chrono::milliseconds time)
{
    return std::chrono::steady_clock::now() + time;
}

/// Waits for poll(2) events on one descriptor. Returns the events that came, 0 when the time is over, -1 with
/// errno set when poll failed.
int poll_until(int fd, short events, Deadline deadline);

/// Each blocking receive (send) on the socket waits at most this long and then fails with EAGAIN; see
/// socket(7), SO_RCVTIMEO and SO_SNDTIMEO. The latter also holds for connect(2).
void set_receive_timeout(int fd, std::chrono::milliseconds timeout);
void set_send_timeout(int fd, std::chrono::milliseconds timeout);

/// Sends everything, never raising SIGPIPE. False with errno set when the other side is gone, or takes
/// nothing for `patience` (ETIMEDOUT). The socket may be blocking or not.
bool send_all(int fd, std::string_view bytes, std::chrono::milliseconds patience);

/// The same with other ways to write and to wait: `write(bytes)` returns as send(2), `events()` the events of
/// poll(2) for which its EAGAIN waits.
template <class Write, class Events>
bool write_all(int fd, std::string_view bytes, std::chrono::milliseconds patience, Write write, Events events)
{
    while (!bytes.empty()) {
        const ssize_t n = write(bytes);
        if (n >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(n));
            continue;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN)
            return false;
        const int came = poll_until(fd, events(), deadline_in(patience));
        if (came == 0)
            errno = ETIMEDOUT;
        if (came <= 0)
            return false;
    }
    return true;
}

/// The address of a Unix socket; nothing, with errno set, when the path is too long for one.
std::optional<sockaddr_un> unix_address(const std::string &path);

/// The cast that the socket interface asks for, in one place.
inline const sockaddr *as_sockaddr(const void *address)
{
    return static_cast<const sockaddr *>(address);
}

/// Connects to a Unix stream socket; the send time-out of the new socket is `timeout`.
Fd connect_unix(const std::string &path, std::chrono::milliseconds timeout);

/// Connects over TCP to a host name or numeric address and a numeric port, trying all its addresses within
/// `timeout`. Looking up a host name may take longer than that.
Fd connect_tcp(const std::string &host, const std::string &port, std::chrono::milliseconds timeout);

inline constexpr char kSocketFolder[] = "/var/run/qv"; ///< of the endpoints, below the sysroot

/// Makes the folder of the endpoints, 0755, if need be. False with errno
/// set.
bool make_endpoint_folder();

/// A listening Unix socket and its place in the file system.
struct UnixListener {
    Fd socket;
    std::string path;
    dev_t device = 0; // device and inode tell our socket from one that replaced it
    ino_t inode = 0;
};

/// Who may connect to an endpoint: root and the group "qv", or everybody.
enum class SocketMode : mode_t { of_group = 0660, of_all = 0666 };

/// Listens on the endpoint `name` ("/var/run/qv/<name>.sock" below the sysroot; folder 0755, socket of group
/// "qv" when that group exists). Replaces the socket of a dead server. Reports every failure: a live server
/// answers there, something else bears the name, the folder cannot be made, the path is too long.
std::optional<UnixListener> listen_unix(std::string_view name, SocketMode mode = SocketMode::of_group);

/// The number of the group "qv"; nothing when there is none. Asked once in a process; may wait for a
/// directory service then.
std::optional<gid_t> qv_socket_group();

/// The path of the Unix socket of endpoint `name`, below the sysroot. See unix(7): at most 107 bytes fit.
std::string qv_ipc_socket_path(std::string_view name);

/// False when the sysroot is so long that no endpoint of the appliance fits into a socket address.
bool qv_ipc_paths_fit();

inline constexpr std::size_t kMaxLineBytes = std::size_t{1} << 20; ///< of a request; a longer line ends it

/// Removes the socket's name, unless another server has taken it over.
void remove_unix_socket(const UnixListener &listener);

/// Listens on a numeric IPv4 or IPv6 address; reports every failure. Accepted sockets inherit TCP_NODELAY and
/// SO_KEEPALIVE.
Fd listen_tcp(const char *address, int port);

} // namespace qvcd

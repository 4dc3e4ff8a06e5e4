#include "platform/socket.h"

#include "platform/log.h"
#include "platform/sysroot.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <memory>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <vector>

namespace qvcd {

namespace {

using namespace std::chrono_literals;

constexpr char kSocketFolder[] = "/var/run/qv";
constexpr char kSocketGroup[] = "qv";
constexpr mode_t kFolderMode = 0755;
constexpr auto kFolderLockPatience = 2s; // another daemon's check and bind takes milliseconds

// The casts that the socket interface asks for, in one place.
const sockaddr *as_sockaddr(const void *address)
{
    return static_cast<const sockaddr *>(address);
}

void set_option(int fd, int level, int option, int value)
{
    ::setsockopt(fd, level, option, &value, sizeof value);
}

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

} // namespace

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

// ---- TCP ----

namespace {

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
        set_option(fd.get(), SOL_SOCKET, SO_KEEPALIVE, 1);
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

// ---- Unix endpoints ----

namespace {

// Two daemons that start at once must not both find the socket dead and replace each other's: who looks and
// binds holds a lock on the folder. Anybody may read the folder and so lock it, hence the patience.
Fd lock_folder(const std::string &path)
{
    Fd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Deadline deadline = deadline_in(kFolderLockPatience);
    while (folder && ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            qv_log_print(kLogWarning, "%s is locked by another process, going on without the lock\n",
                         kSocketFolder);
            break;
        }
        std::this_thread::sleep_for(10ms);
    }
    return folder;
}

// Removes what a dead server left. Returns an empty text when the name is free now, else why it is not.
std::string free_name(const std::string &path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        return errno == ENOENT ? "" : std::strerror(errno);
    if (!S_ISSOCK(status.st_mode))
        return "it exists and is no socket";
    const auto address = unix_address(path);
    const Fd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!address || !probe)
        return std::strerror(errno);
    const bool answers = ::connect(probe.get(), as_sockaddr(&*address), sizeof *address) == 0;
    if (answers || errno == EAGAIN) // EAGAIN: its listen queue is full
        return "a live server answers there";
    if (errno != ECONNREFUSED || ::unlink(path.c_str()) != 0)
        return std::strerror(errno);
    return "";
}

void give_to_group(const std::string &path)
{
    const std::optional<gid_t> group = qv_socket_group();
    if (group && ::lchown(path.c_str(), static_cast<uid_t>(-1), *group) != 0)
        qv_log_print(kLogWarning, "%s: cannot give it to group %s: %s\n", path.c_str(), kSocketGroup,
                     std::strerror(errno));
}

// The socket is born with mode 0660 less the umask, so nobody gets in before its group is set.
bool bind_and_listen(UnixListener &listener, SocketMode mode)
{
    const auto address = unix_address(listener.path);
    listener.socket.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int fd = listener.socket.get();
    if (!address || fd < 0 || ::fchmod(fd, static_cast<mode_t>(SocketMode::of_group)) != 0 ||
        ::bind(fd, as_sockaddr(&*address), sizeof *address) != 0)
        return false;
    give_to_group(listener.path);
    struct stat status {};
    if (::chmod(listener.path.c_str(), static_cast<mode_t>(mode)) != 0 ||
        ::lstat(listener.path.c_str(), &status) != 0 || ::listen(fd, SOMAXCONN) != 0)
        return false;
    listener.device = status.st_dev;
    listener.inode = status.st_ino;
    return true;
}

std::string device_path(std::string_view name)
{
    return std::string(kSocketFolder) + "/" + std::string(name) + ".sock";
}

} // namespace

bool make_endpoint_folder()
{
    const std::string path = qv_sysroot_path(kSocketFolder);
    std::error_code error;
    const bool made = std::filesystem::create_directories(path, error);
    errno = error.value();
    return !error && (!made || ::chmod(path.c_str(), kFolderMode) == 0);
}

std::string qv_ipc_socket_path(std::string_view name)
{
    return qv_sysroot_path(device_path(name));
}

bool qv_ipc_paths_fit()
{
    return unix_address(qv_ipc_socket_path("notify")).has_value();
}

std::optional<gid_t> qv_socket_group()
{
    group entry{};
    group *found = nullptr;
    std::vector<char> buffer(16384);
    if (::getgrnam_r(kSocketGroup, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return std::nullopt;
    return entry.gr_gid;
}

std::optional<UnixListener> listen_unix(std::string_view name, SocketMode mode)
{
    const std::string where = "cannot serve " + device_path(name) + ": ";
    UnixListener listener;
    listener.path = qv_ipc_socket_path(name);
    if (!unix_address(listener.path)) {
        qv_report_failure(where + listener.path + " is too long for a socket address");
        return std::nullopt;
    }
    if (!make_endpoint_folder()) {
        qv_report_failure(where + "cannot make its folder: " + std::strerror(errno));
        return std::nullopt;
    }
    const Fd lock = lock_folder(qv_sysroot_path(kSocketFolder));
    if (const std::string taken = free_name(listener.path); !taken.empty()) {
        qv_report_failure(where + taken);
        return std::nullopt;
    }
    if (!bind_and_listen(listener, mode)) {
        qv_report_failure(where + std::strerror(errno));
        return std::nullopt;
    }
    return listener;
}

void remove_unix_socket(const UnixListener &listener)
{
    const Fd lock = lock_folder(qv_sysroot_path(kSocketFolder));
    struct stat status {};
    if (::lstat(listener.path.c_str(), &status) == 0 && status.st_dev == listener.device &&
        status.st_ino == listener.inode)
        ::unlink(listener.path.c_str());
}

} // namespace qvcd

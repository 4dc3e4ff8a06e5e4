#include "platform/socket.h"

#include "platform/log.h"
#include "platform/sysroot.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace qvcd {

namespace {

using namespace std::chrono_literals;

constexpr char kSocketGroup[] = "qv";
constexpr mode_t kFolderMode = 0755;
constexpr auto kFolderLockPatience = 2s; // another daemon's check and bind takes milliseconds

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

} // namespace

bool make_endpoint_folder()
{
    const std::string path = qv_sysroot_path(kSocketFolder);
    std::error_code error;
    const bool made = std::filesystem::create_directories(path, error);
    errno = error.value();
    return !error && (!made || ::chmod(path.c_str(), kFolderMode) == 0);
}

std::optional<gid_t> qv_socket_group()
{
    // The answer may come from a directory service, or from a dozen files.
    static const std::optional<gid_t> number = []() -> std::optional<gid_t> {
        group entry{};
        group *found = nullptr;
        std::vector<char> buffer(16384);
        if (::getgrnam_r(kSocketGroup, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
            return std::nullopt;
        return entry.gr_gid;
    }();
    return number;
}

std::optional<UnixListener> listen_unix(std::string_view name, SocketMode mode)
{
    UnixListener listener;
    listener.path = qv_ipc_socket_path(name);
    const std::string where = "cannot serve " + qv_device_path(listener.path) + ": ";
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

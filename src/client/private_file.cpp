#include "client/private_file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/fd.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;

std::string folder_in(const char *variable)
{
    const char *path = std::getenv(variable);
    return path && path[0] == '/' ? path : "";
}

bool is_ours_alone(const struct stat &status)
{
    return status.st_uid == geteuid() && (status.st_mode & 077) == 0;
}

bool is_young(const struct stat &status, std::optional<std::chrono::seconds> age)
{
    const std::time_t now = std::time(nullptr);
    return !age || (status.st_mtime <= now && now - status.st_mtime < age->count());
}

} // namespace

std::string runtime_folder()
{
    const std::string folder = folder_in("XDG_RUNTIME_DIR");
    return folder.empty() ? "" : folder + "/qvc";
}

std::string state_folder()
{
    if (const std::string folder = folder_in("XDG_STATE_HOME"); !folder.empty())
        return folder + "/qvc";
    const std::string home = folder_in("HOME");
    return home.empty() ? "" : home + "/.local/state/qvc";
}

bool make_private_folder(const std::string &folder)
{
    for (std::size_t end = 1; end != std::string::npos && !folder.empty();) {
        end = folder.find('/', end + 1);
        if (mkdir(folder.substr(0, end).c_str(), 0700) != 0 && errno != EEXIST && end == std::string::npos)
            return false;
    }
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0)
        return false;
    errno = EPERM;
    return S_ISDIR(status.st_mode) && is_ours_alone(status);
}

std::optional<std::string> read_private_file(const std::string &file, std::optional<std::chrono::seconds> age)
{
    const Fd fd(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) || !is_ours_alone(status) ||
        !is_young(status, age))
        return std::nullopt;
    std::string text;
    std::array<char, 65536> buffer;
    ssize_t got = 0;
    while (text.size() <= kMostBytes && (got = read(fd.get(), buffer.data(), buffer.size())) > 0)
        text.append(buffer.data(), static_cast<std::size_t>(got));
    return got == 0 ? std::optional(text) : std::nullopt;
}

bool replace_private_file(const std::string &file, const std::string &text)
{
    const std::string fresh = file + "." + std::to_string(getpid());
    unlink(fresh.c_str());
    const Fd fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd)
        return false;
    if (write_all(fd.get(), text) && rename(fresh.c_str(), file.c_str()) == 0)
        return true;
    const int error = errno;
    unlink(fresh.c_str());
    errno = error;
    return false;
}

bool write_all(int fd, const std::string &text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace qvcd::client

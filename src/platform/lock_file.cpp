#include "platform/lock_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace qvcd {

namespace {

bool is_named(int fd, const std::string &path)
{
    struct stat open_one {};
    struct stat named {};
    return ::fstat(fd, &open_one) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           open_one.st_dev == named.st_dev && open_one.st_ino == named.st_ino;
}

LockFile failure(const char *why)
{
    LockFile file;
    file.failure = why;
    return file;
}

} // namespace

LockFile open_lock_file(const std::string &path, mode_t mode)
{
    for (;;) {
        LockFile file;
        file.fd.reset(
            ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode));
        struct stat status {};
        if (!file.fd || ::fstat(file.fd.get(), &status) != 0)
            return failure(std::strerror(errno));
        if (!S_ISREG(status.st_mode))
            return failure("it is no regular file");
        file.ours = ::flock(file.fd.get(), LOCK_EX | LOCK_NB) == 0;
        if (!file.ours && errno != EWOULDBLOCK)
            return failure(std::strerror(errno));
        // A process that ended between our open and our lock has removed the name.
        if (!file.ours || is_named(file.fd.get(), path))
            return file;
    }
}

std::string read_lock_file(const LockFile &file)
{
    std::array<char, 31> text{};
    const ssize_t n = ::pread(file.fd.get(), text.data(), text.size(), 0);
    return std::string(text.data(), static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
}

bool write_lock_file(const LockFile &file, std::string_view text)
{
    const auto size = static_cast<ssize_t>(text.size());
    return ::pwrite(file.fd.get(), text.data(), text.size(), 0) == size &&
           ::ftruncate(file.fd.get(), size) == 0;
}

void remove_lock_file(const LockFile &file, const std::string &path)
{
    if (is_named(file.fd.get(), path))
        ::unlink(path.c_str());
}

} // namespace qvcd

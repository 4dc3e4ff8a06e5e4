#include "base/file_text.h"

#include "platform/fd.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <linux/magic.h>
#include <mutex>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace qvcd {

namespace {

std::string folder_of(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The file a path stands for: the target of a symbolic link, existing or not.
std::string real_target(const std::string &path)
{
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
        return path;
    if (char *resolved = realpath(path.c_str(), nullptr)) {
        std::string target = resolved;
        std::free(resolved);
        return target;
    }
    std::array<char, PATH_MAX> link{};
    const ssize_t n = readlink(path.c_str(), link.data(), link.size() - 1);
    if (n <= 0)
        return path;
    const std::string target(link.data(), static_cast<std::size_t>(n));
    return target.front() == '/' ? target : folder_of(path) + "/" + target;
}

int write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t n = write(fd, text.data(), text.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        text.remove_prefix(static_cast<std::size_t>(n));
    }
    return 0;
}

int write_in_place(const std::string &path, std::string_view text)
{
    const Fd fd(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    return fd ? write_all(fd.get(), text) : errno;
}

constexpr unsigned kUmask = 022; // the daemon's own, set at start; asking for it would change it for a moment

// Files of the kernel say that they are regular, but a write to them is a request.
bool is_kernel_file(const std::string &path)
{
    struct statfs fs {};
    if (statfs(path.c_str(), &fs) != 0)
        return false;
    return fs.f_type == PROC_SUPER_MAGIC || fs.f_type == SYSFS_MAGIC || fs.f_type == DEBUGFS_MAGIC;
}

void flush_folder(const std::string &folder)
{
    const Fd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        fsync(fd.get());
}

// The new text before it takes the target's name. One name a folder: what a power cut leaves behind is
// overwritten by the next write instead of piling up, and no program takes it for a file of its own.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string &target)
        : lock_(one_writer()), name_(folder_of(target) + "/.qvcd-new")
    {
        unlink(name_.c_str());
        fd_.reset(open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    }
    ~TemporaryFile()
    {
        if (fd_)
            unlink(name_.c_str());
    }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    int fd() const { return fd_.get(); }
    int rename_to(const std::string &target)
    {
        if (rename(name_.c_str(), target.c_str()) != 0)
            return errno;
        fd_.reset();
        return 0;
    }

  private:
    static std::mutex &one_writer()
    {
        static std::mutex *const mutex = new std::mutex; // threads may be left behind at the exit
        return *mutex;
    }

    const std::lock_guard<std::mutex> lock_;
    std::string name_;
    Fd fd_;
};

// `old`: the replaced file's state, or null for a new file.
int replace_regular(const std::string &target, std::string_view text, unsigned mode, const struct stat *old,
                    Durable durable)
{
    TemporaryFile file(target);
    if (file.fd() < 0)
        return errno;
    if (fchmod(file.fd(), mode) != 0)
        return errno;
    // Only root may give files away; for others the owner is right already.
    if (old && (old->st_uid != geteuid() || old->st_gid != getegid()) &&
        fchown(file.fd(), old->st_uid, old->st_gid) != 0 && errno != EPERM)
        return errno;
    if (const int error = write_all(file.fd(), text))
        return error;
    if (durable == Durable::yes && fsync(file.fd()) != 0)
        return errno;
    if (const int error = file.rename_to(target))
        return error;
    if (durable == Durable::yes)
        flush_folder(folder_of(target));
    return 0;
}

} // namespace

std::optional<std::string> read_file(const std::string &path, std::size_t limit)
{
    const Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd)
        return std::nullopt;
    std::string text;
    std::array<char, 16384> block;
    while (text.size() < limit) {
        const ssize_t n = read(fd.get(), block.data(), std::min(block.size(), limit - text.size()));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return text.empty() ? std::nullopt : std::optional(text);
        if (n == 0)
            break;
        text.append(block.data(), static_cast<std::size_t>(n));
    }
    return text;
}

int replace_file(const std::string &path, std::string_view text, unsigned mode, Durable durable)
{
    const std::string target = real_target(path);
    struct stat st {};
    if (stat(target.c_str(), &st) != 0)
        return replace_regular(target, text, mode & ~kUmask, nullptr, durable);
    if (S_ISDIR(st.st_mode))
        return EISDIR;
    if (!S_ISREG(st.st_mode) || is_kernel_file(target))
        return write_in_place(target, text);
    return replace_regular(target, text, st.st_mode & 07777U, &st, durable);
}

int replace_secret_file(const std::string &path, std::string_view text, unsigned mode)
{
    const std::string target = real_target(path);
    struct stat st {};
    if (stat(target.c_str(), &st) != 0)
        return replace_regular(target, text, mode, nullptr, Durable::yes);
    if (S_ISDIR(st.st_mode))
        return EISDIR;
    if (!S_ISREG(st.st_mode) || is_kernel_file(target))
        return write_in_place(target, text);
    return replace_regular(target, text, mode, &st, Durable::yes);
}

int write_scratch_file(const std::string &path, std::string_view text)
{
    const Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
    return fd ? write_all(fd.get(), text) : errno;
}

bool file_exists(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

} // namespace qvcd

#include "base/replacement.h"

#include "base/file_text.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <sys/random.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace qvcd {

namespace {

constexpr std::string_view kNewName = ".qvcd-new";
constexpr int kMaxLinks = 40;
constexpr int kMaxNames = 100; // tried for a new file

std::string_view name_of(std::string_view path)
{
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

// Where a symbolic link leads. 0; EINVAL and ENOENT: there is no link.
int read_link(const std::string &path, std::string &target)
{
    std::array<char, PATH_MAX> link{};
    const ssize_t n = readlink(path.c_str(), link.data(), link.size() - 1);
    if (n < 0)
        return errno;
    target.assign(link.data(), static_cast<std::size_t>(n));
    if (!target.starts_with('/'))
        target.insert(0, folder_of(path) + "/");
    return 0;
}

// When a process began, in ticks since the boot: another one gets its number one day. 0: not known.
unsigned long long start_of(int pid)
{
    constexpr int kFieldsBefore = 19; // between the name, which may hold anything, and the time
    const FileText stat = read_whole_file("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t name_end = stat.text.rfind(')');
    std::istringstream fields(name_end == std::string::npos ? "" : stat.text.substr(name_end + 1));
    std::string field;
    for (int i = 0; i < kFieldsBefore; ++i)
        fields >> field;
    unsigned long long start = 0;
    fields >> start;
    return start;
}

// The numbers of this process's own files.
struct Numbers {
    unsigned long long start = start_of(getpid());
    std::uint32_t first = 0;
    std::atomic<std::uint32_t> next;
    Numbers()
    {
        if (getrandom(&first, sizeof first, 0) != sizeof first)
            first = 0;
        next = first;
    }
};

Numbers &numbers()
{
    static Numbers numbers;
    return numbers;
}

std::string next_name()
{
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), "%s-%d-%llu-%08x", kNewName.data(), static_cast<int>(getpid()),
                  numbers().start, numbers().next++);
    return name.data();
}

// True while somebody may be writing the new file of this name.
bool is_in_use(const char *name)
{
    int pid = 0;
    unsigned long long start = 0;
    std::uint32_t number = 0;
    if (std::sscanf(name + kNewName.size(), "-%d-%llu-%8x", &pid, &start, &number) != 3 || pid <= 0)
        return false;
    if (pid == getpid())
        return number - numbers().first < numbers().next - numbers().first;
    return start != 0 && start_of(pid) == start;
}

// A shortage may be over when somebody tries again; what else keeps a sibling from being made or renamed lies
// in the kind of the place.
bool is_shortage(int error)
{
    constexpr int kShortages[] = {ENOSPC, EDQUOT, EMFILE, ENFILE, ENOMEM, EIO, EFBIG};
    return std::ranges::find(kShortages, error) != std::end(kShortages);
}

bool is_mounted_on_its_own(const std::string &path)
{
    struct statx st {};
    return statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, 0, &st) == 0 &&
           (st.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// Labels, access lists and what users attach. What cannot be given to the new file is not worth the save.
int copy_extended_attributes(const std::string &from, int fd, bool with_access)
{
    std::string names(XATTR_LIST_MAX, '\0');
    const ssize_t size = listxattr(from.c_str(), names.data(), names.size());
    if (size < 0)
        return is_shortage(errno) ? errno : 0;
    names.resize(static_cast<std::size_t>(size));
    for (std::size_t at = 0; at < names.size(); at += std::strlen(names.c_str() + at) + 1) {
        const char *name = names.c_str() + at;
        if (!with_access && std::string_view(name).starts_with("system."))
            continue;
        std::vector<char> value(XATTR_SIZE_MAX);
        const ssize_t n = getxattr(from.c_str(), name, value.data(), value.size());
        if (n >= 0 && fsetxattr(fd, name, value.data(), static_cast<std::size_t>(n), 0) != 0 &&
            is_shortage(errno))
            return errno;
    }
    return 0;
}

int take_over_attributes(int fd, const std::string &target, const struct stat &old, unsigned mode,
                         bool secret)
{
    if ((old.st_uid != geteuid() || old.st_gid != getegid()) && fchown(fd, old.st_uid, old.st_gid) != 0)
        return errno;
    if (fchmod(fd, mode) != 0)
        return errno;
    return copy_extended_attributes(target, fd, !secret);
}

// The file holds the bytes that it gives: neither a device nor a file of the kernel, which answers.
bool holds_bytes(const struct stat &st, const FileText &text)
{
    return S_ISREG(st.st_mode) && !text.error && text.text.size() == static_cast<std::size_t>(st.st_size);
}

// Folders whose names changed and could not be flushed since.
class Unflushed {
  public:
    void note(const std::string &folder, int error)
    {
        const std::scoped_lock lock(mutex_);
        if (error)
            folders_.insert(folder);
        else
            folders_.erase(folder);
        is_empty_ = folders_.empty();
    }
    bool is_empty() const { return is_empty_; }
    bool holds(const std::string &folder)
    {
        const std::scoped_lock lock(mutex_);
        return folders_.contains(folder);
    }

  private:
    std::mutex mutex_;
    std::set<std::string> folders_;
    std::atomic<bool> is_empty_ = true;
};

Unflushed &unflushed()
{
    static auto *const folders = new Unflushed; // threads may be left behind at the exit
    return *folders;
}

int overwrite(int fd, std::string_view text, const struct stat &old)
{
    if (const int error = write_all(fd, text))
        return error;
    if (S_ISREG(old.st_mode) && old.st_size > static_cast<off_t>(text.size()) &&
        ftruncate(fd, static_cast<off_t>(text.size())) != 0)
        return errno;
    return flush_file(fd);
}

} // namespace

std::string folder_of(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

int real_file(const std::string &path, std::string &real)
{
    real = path;
    int error = 0;
    for (int links = 0; !error; ++links) {
        std::string next;
        error = links < kMaxLinks ? read_link(real, next) : ELOOP;
        if (!error)
            real = std::move(next);
    }
    if (error != EINVAL && error != ENOENT && error != ENOTDIR)
        return error;
    // What has no real folder cannot be opened either.
    if (char *const folder = realpath(folder_of(real).c_str(), nullptr)) {
        real = (std::strcmp(folder, "/") == 0 ? "/" : std::string(folder) + "/").append(name_of(real));
        std::free(folder);
    }
    return 0;
}

int flush_folder(const std::string &folder, int fd)
{
    const int error = flush_file(fd);
    unflushed().note(folder, error);
    return error;
}

int flush_folder(const std::string &folder)
{
    const Fd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        return flush_folder(folder, fd.get());
    const int error = errno;
    unflushed().note(folder, error);
    return error;
}

bool all_folders_flushed()
{
    return unflushed().is_empty();
}

bool is_folder_flushed(const std::string &folder)
{
    return !unflushed().holds(folder);
}

namespace {

// Its own name, and those of the folders above it that could not be flushed when they were made.
int flush_name(const std::string &folder)
{
    std::string above = folder;
    int error = 0;
    while (!error && above != folder_of(above)) {
        above = folder_of(above);
        error = is_folder_flushed(above) ? 0 : flush_folder(above);
    }
    return error;
}

} // namespace

int make_folder(const std::string &folder)
{
    if (mkdir(folder.c_str(), 0755) == 0) {
        const int error = flush_folder(folder_of(folder));
        return error ? error : flush_name(folder);
    }
    if (errno == EEXIST)
        return all_folders_flushed() ? 0 : flush_name(folder);
    if (errno != ENOENT || folder_of(folder) == folder)
        return errno;
    const int error = make_folder(folder_of(folder));
    return error ? error : make_folder(folder);
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

// What has nothing to flush says EINVAL.
int flush_file(int fd)
{
    return fsync(fd) == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : errno;
}

int write_in_place(const std::string &path, std::string_view text)
{
    const Fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat st {};
    if (!fd || fstat(fd.get(), &st) != 0)
        return errno;
    const FileText old = S_ISREG(st.st_mode) ? read_whole_file(path) : FileText{EINVAL, {}};
    const bool stored = holds_bytes(st, old);
    // Better to learn of a full disk before than half-way.
    if (stored && !text.empty() &&
        fallocate(fd.get(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(text.size())) != 0 &&
        is_shortage(errno))
        return errno;
    const int error = overwrite(fd.get(), text, st);
    if (error && stored && lseek(fd.get(), 0, SEEK_SET) == 0 && write_all(fd.get(), old.text) == 0 &&
        ftruncate(fd.get(), st.st_size) == 0)
        flush_file(fd.get());
    return error;
}

void remove_left_overs(int folder)
{
    struct Close {
        void operator()(DIR *dir) const { closedir(dir); }
    };
    Fd fd(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, Close> dir(fd ? fdopendir(fd.get()) : nullptr);
    if (!dir)
        return;
    fd.release();
    while (const dirent *entry = readdir(dir.get())) {
        if (NewFile::is_name(entry->d_name) && !is_in_use(entry->d_name))
            unlinkat(dirfd(dir.get()), entry->d_name, 0);
    }
}

void remove_left_overs(const std::string &folder)
{
    const Fd fd(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        remove_left_overs(fd.get());
}

bool NewFile::is_name(std::string_view path)
{
    return name_of(path).starts_with(kNewName);
}

int NewFile::make(const std::string &folder)
{
    const std::string prefix = folder.empty() || folder == "/" ? folder : folder + "/";
    for (int i = 0; i < kMaxNames; ++i) {
        std::string path = prefix + next_name();
        fd_.reset(openat(folder_, path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (fd_)
            path_ = std::move(path);
        if (fd_ || errno != EEXIST)
            break;
    }
    return fd_ ? 0 : errno;
}

int NewFile::flush()
{
    const int error = flush_file(fd_.get());
    fd_.reset();
    return error;
}

int NewFile::rename_to(const std::string &target)
{
    if (renameat(folder_, path_.c_str(), folder_, target.c_str()) != 0)
        return errno;
    path_.clear();
    return 0;
}

int NewFile::remove()
{
    fd_.reset();
    if (path_.empty())
        return 0;
    const int error = unlinkat(folder_, path_.c_str(), 0) == 0 ? 0 : errno;
    path_.clear();
    return error;
}

Replacement::Replacement(const FileChange &change) : change_(change) {}

// `old`: the replaced file's state, or null for a new file.
int Replacement::write_beside(const std::string &folder, const struct stat *old)
{
    if (const int error = new_.make(folder))
        return error;
    const bool secret = change_.kind == FileChange::Kind::secret;
    const unsigned mode = secret ? change_.mode : old ? old->st_mode & 07777U : change_.mode & ~kUmask;
    int error = old ? take_over_attributes(new_.fd(), target_, *old, mode, secret)
                    : (fchmod(new_.fd(), mode) == 0 ? 0 : errno);
    if (!error)
        error = write_all(new_.fd(), change_.text);
    if (error)
        new_.remove();
    else
        sync_file_range(new_.fd(), 0, 0, SYNC_FILE_RANGE_WRITE);
    return error;
}

// Beside the journal and for us alone, so that a crash in the middle of writing in place can be made good.
// It can do without.
void Replacement::write_spare(const struct stat &old)
{
    const std::string folder = folder_of(qv_sysroot_path(kJournal));
    if (holds_bytes(old, read_whole_file(target_)) && make_folder(folder) == 0 && new_.make(folder) == 0 &&
        write_all(new_.fd(), change_.text) != 0)
        new_.remove();
}

int Replacement::prepare()
{
    if (const int error = real_file(change_.path, target_))
        return error;
    struct stat old {};
    const bool exists = stat(target_.c_str(), &old) == 0;
    if (!exists && errno != ENOENT)
        return errno;
    if (exists && S_ISDIR(old.st_mode))
        return EISDIR;
    if (change_.kind == FileChange::Kind::device || (exists && !S_ISREG(old.st_mode))) {
        in_place_ = true;
        return exists ? 0 : ENOENT;
    }
    if (!exists || !is_mounted_on_its_own(target_)) {
        const int error = write_beside(folder_of(target_), exists ? &old : nullptr);
        if (!error || !exists || is_shortage(error))
            return error;
    }
    in_place_ = true;
    write_spare(old);
    return 0;
}

int Replacement::put()
{
    if (in_place_)
        return write_in_place(target_, change_.text);
    const int error = new_.rename_to(target_);
    if (!error || is_shortage(error))
        return error;
    const int second = write_in_place(target_, change_.text);
    return second == ENOENT ? error : second;
}

} // namespace qvcd

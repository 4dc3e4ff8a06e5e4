// A library for LD_PRELOAD that plays a failing machine to the daemon. It counts the file calls below one
// folder (QV_SYSROOT) from the moment the driver arms it, writes each into a log, and deals with the k-th as
// it was told: fails it, does half of it, or kills the process before or after it. It can let the n-th
// allocation fail too.
//
//   QVCD_FAULTS_CONTROL  a file of at least sizeof(Control) bytes, mapped by the driver as well
//   QVCD_FAULTS_LOG      where the calls are written to (outside the folder)
//   QVCD_FAULTS_SPARE    paths below the folder that are left alone, with ":" between them; a path that ends
//   in
//                        "/" stands for all below it
//
// Only the process that was started with it counts: its children do not get the library. Flushes are logged
// but not carried out, which makes thousands of runs quick: what a power cut leaves is worked out from the
// log.
//
// The log has two kinds of lines, fields separated by tabs (disk.py reads them):
//   call   number name class path path2 dealt           what was asked, in order
//   done   number what ...                              what changed on the disk by it
// All paths are canonical.

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <mutex>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

// What a call is to the disk; the driver chooses by it which faults a call can meet.
enum Class : std::uint32_t {
    kOpenRead = 1U << 0U,
    kOpenWrite = 1U << 1U,
    kCreate = 1U << 2U,
    kRead = 1U << 3U,
    kWrite = 1U << 4U,
    kTruncate = 1U << 5U,
    kFlush = 1U << 6U,
    kRename = 1U << 7U,
    kUnlink = 1U << 8U,
    kMode = 1U << 9U,
    kMakeFolder = 1U << 10U,
    kLink = 1U << 11U,
    kClose = 1U << 12U,
    kList = 1U << 13U, // the next entry of a folder
    kLook = 1U << 14U, // stat and its like
    kMap = 1U << 15U,  // what is changed in mapped memory is not seen
};

enum Action : std::uint32_t { kCount, kFail, kFailFromThere, kHalf, kHalfAndKill, kKillBefore, kKillAfter };

// Shared with the driver, which knows this layout (shim.py).
struct Control {
    std::atomic<std::uint32_t> armed;
    std::uint32_t action;
    std::uint32_t error;
    std::uint32_t classes; // that the action can meet
    std::uint64_t at;      // the call's number, from 1
    std::atomic<std::uint64_t> calls;
    std::atomic<std::uint64_t> dealt;
    std::atomic<std::uint32_t> count_allocations;
    std::uint32_t unused;
    std::uint64_t allocation_at;
    std::atomic<std::uint64_t> allocations;
    std::atomic<std::uint64_t> allocations_failed;
};

constexpr int kMaxFds = 4096;
constexpr std::size_t kLine = 4 * PATH_MAX;

struct OpenFile {
    bool known = false;
    bool written = false;
    bool folder = false;
    std::uint64_t inode = 0;
    char path[PATH_MAX] = {};
};

struct State {
    Control *control = nullptr;
    int log = -1;
    pid_t process = 0;
    char root[PATH_MAX] = {};
    std::size_t root_size = 0;
    char spare[PATH_MAX] = {};
    std::mutex mutex; // makes the order of the log the order of the calls
    OpenFile *files = nullptr;
    int doomed = -1; // half of a call was done on it: the rest fails
};
State *state;

// Set while we are in our own code: what libc calls from there is not counted.
thread_local bool inside __attribute__((tls_model("initial-exec"))) = false;

// ---- Paths ----

bool below_root(const char *path)
{
    return std::strncmp(path, state->root, state->root_size) == 0 && path[state->root_size] == '/';
}

bool is_spared(const char *path)
{
    const char *name = path + state->root_size;
    for (const char *at = state->spare; *at;) {
        const std::size_t size = std::strcspn(at, ":");
        if (size && std::strncmp(name, at, size) == 0 && (at[size - 1] == '/' || name[size] == '\0'))
            return true;
        at += size + (at[size] == ':');
    }
    return false;
}

void path_of_fd(int fd, char *out)
{
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const long n = syscall(SYS_readlink, link, out, PATH_MAX - 1);
    out[n > 0 ? n : 0] = '\0';
}

// The canonical folder and the last name; the path as it stands where that fails.
void canonical(int folder, const char *path, char *out)
{
    const int saved = errno;
    char parent[PATH_MAX];
    const char *slash = std::strrchr(path, '/');
    const char *name = slash ? slash + 1 : path;
    if (!slash)
        std::snprintf(parent, sizeof parent, ".");
    else
        std::snprintf(parent, sizeof parent, "%.*s", static_cast<int>(slash == path ? 1 : slash - path),
                      path);
    const long fd = syscall(SYS_openat, folder, parent, O_PATH | O_DIRECTORY | O_CLOEXEC, 0);
    if (fd < 0) {
        std::snprintf(out, PATH_MAX, "%s", path);
    } else {
        path_of_fd(static_cast<int>(fd), parent);
        syscall(SYS_close, fd);
        if (std::snprintf(out, PATH_MAX, "%s/%s", parent, name) >= PATH_MAX)
            out[PATH_MAX - 1] = '\0';
    }
    errno = saved;
}

// True when the call is one of ours; `out` is then its canonical path.
bool find_path(int folder, const char *path, char *out)
{
    if (!path || !*path)
        return false;
    if (path[0] == '/' && !below_root(path))
        return false;
    canonical(folder, path, out);
    return below_root(out) && !is_spared(out);
}

OpenFile *find_fd(int fd)
{
    if (fd < 0 || fd >= kMaxFds || !state->files[fd].known)
        return nullptr;
    return &state->files[fd];
}

// ---- One call ----

void put_line(const char *line, std::size_t size)
{
    if (size >= kLine)
        size = kLine - 1;
    syscall(SYS_write, state->log, line, size);
}

__attribute__((format(printf, 1, 2))) void note(const char *format, ...)
{
    char line[kLine];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    put_line(line, static_cast<std::size_t>(n > 0 ? n : 0));
}

[[noreturn]] void die()
{
    syscall(SYS_kill, state->process, SIGKILL);
    for (;;)
        syscall(SYS_pause);
}

enum class Deal { pass, fail, half };

class Call {
  public:
    Call() { inside = true; }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;
    ~Call()
    {
        if (locked_)
            state->mutex.unlock();
        inside = false;
    }

    bool armed() const { return locked_; }
    std::uint64_t number() const { return number_; }

    Deal begin(const char *name, std::uint32_t kind, const char *path, const char *path2 = "", int fd = -1)
    {
        Control &control = *state->control;
        if (control.armed.load() == 0)
            return Deal::pass;
        state->mutex.lock();
        locked_ = true;
        number_ = ++control.calls;
        const Deal deal = decide(kind, fd);
        note("call\t%llu\t%s\t%u\t%s\t%s\t%d\n", static_cast<unsigned long long>(number_), name, kind, path,
             path2, dealt_ ? 1 : 0);
        if (dealt_)
            ++control.dealt;
        if (dealt_ && control.action == kKillBefore)
            die();
        return deal;
    }

    // After the call was made, and what it changed was noted.
    void end() const
    {
        if (dealt_ && (state->control->action == kKillAfter || state->control->action == kHalfAndKill))
            die();
    }

  private:
    Deal decide(std::uint32_t kind, int fd)
    {
        const Control &control = *state->control;
        const bool meets = (kind & control.classes) != 0;
        if (fd >= 0 && fd == state->doomed && (kind & (kRead | kWrite)) != 0) {
            dealt_ = true;
            return Deal::fail;
        }
        if (!meets || control.action == kCount)
            return Deal::pass;
        if (control.action == kFailFromThere && number_ >= control.at) {
            dealt_ = true;
            return Deal::fail;
        }
        if (number_ != control.at)
            return Deal::pass;
        dealt_ = true;
        switch (control.action) {
        case kFail:
            return Deal::fail;
        case kHalf:
            state->doomed = fd;
            return Deal::half;
        case kHalfAndKill:
            return Deal::half;
        default:
            return Deal::pass;
        }
    }

    bool locked_ = false;
    bool dealt_ = false;
    std::uint64_t number_ = 0;
};

bool is_active()
{
    return state && !inside && state->process == static_cast<pid_t>(syscall(SYS_getpid));
}

struct Named {
    const char *name;
    std::uint32_t kind;
};

int fail()
{
    errno = static_cast<int>(state->control->error);
    return -1;
}

// A call on a path: `real` makes it, `changed(number, path)` notes what it changed.
template <class Real, class Changed>
auto on_path(Named what, int folder, const char *path, Real real, Changed changed) -> decltype(real())
{
    if (!is_active())
        return real();
    Call call;
    char name[PATH_MAX];
    if (!find_path(folder, path, name))
        return real();
    if (call.begin(what.name, what.kind, name) == Deal::fail)
        return fail();
    const auto result = real();
    const int error = errno;
    if (result == 0 && call.armed())
        changed(call.number(), name);
    call.end();
    errno = error;
    return result;
}

template <class Real>
auto look_at(const char *name, int folder, const char *path, Real real) -> decltype(real())
{
    return on_path({name, kLook}, folder, path, real, [](std::uint64_t, const char *) {});
}

// ---- Opening ----

std::uint32_t kind_of_open(int flags)
{
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE)
        return kCreate;
    return (flags & O_ACCMODE) == O_RDONLY ? kOpenRead : kOpenWrite;
}

std::uint64_t inode_of(int fd, bool &folder)
{
    struct stat st {};
    syscall(SYS_fstat, fd, &st);
    folder = S_ISDIR(st.st_mode);
    return st.st_ino;
}

void remember(int fd, bool written)
{
    if (fd < 0 || fd >= kMaxFds)
        return;
    OpenFile &file = state->files[fd];
    path_of_fd(fd, file.path);
    file.inode = inode_of(fd, file.folder);
    file.written = written;
    file.known = true;
}

void note_open(std::uint64_t number, int fd, int flags, bool existed)
{
    const OpenFile &file = state->files[fd];
    if (file.folder)
        return;
    const auto n = static_cast<unsigned long long>(number);
    const auto inode = static_cast<unsigned long long>(file.inode);
    struct stat st {};
    syscall(SYS_fstat, fd, &st);
    if ((flags & O_TMPFILE) == O_TMPFILE)
        note("done\t%llu\tcreate\t\t%llu\t%o\n", n, inode, st.st_mode & 07777U);
    else if ((flags & O_CREAT) != 0 && !existed)
        note("done\t%llu\tcreate\t%s\t%llu\t%o\n", n, file.path, inode, st.st_mode & 07777U);
    else
        note("done\t%llu\topen\t%s\t%llu\n", n, file.path, inode);
    if ((flags & O_TRUNC) != 0)
        note("done\t%llu\ttruncate\t%s\t%llu\t0\n", n, file.path, inode);
}

int any_open(const char *name, int folder, const char *path, int flags, mode_t mode)
{
    const auto real = [&] { return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode)); };
    if (!is_active())
        return real();
    Call call;
    char canonical_name[PATH_MAX];
    if ((flags & O_PATH) != 0 || !find_path(folder, path, canonical_name))
        return real();
    if (call.begin(name, kind_of_open(flags), canonical_name) == Deal::fail)
        return fail();
    struct stat st {};
    const bool existed = syscall(SYS_newfstatat, folder, path, &st, 0) == 0;
    const int fd = real();
    const int error = errno;
    if (fd >= 0) {
        remember(fd, (flags & O_ACCMODE) != O_RDONLY);
        if (call.armed() && fd < kMaxFds)
            note_open(call.number(), fd, flags, existed);
    }
    call.end();
    errno = error;
    return fd;
}

mode_t mode_argument(int flags, va_list args)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, mode_t) : 0;
}

// ---- Calls on descriptors ----

template <class Real, class Changed>
auto on_fd(Named what, int fd, Real real, Changed changed) -> decltype(real())
{
    if (!is_active())
        return real();
    const OpenFile *file = find_fd(fd);
    if (!file)
        return real();
    Call call;
    if (call.begin(what.name, what.kind, file->path, "", fd) == Deal::fail)
        return fail();
    const auto result = real();
    const int error = errno;
    if (result >= 0 && call.armed())
        changed(call.number(), *file);
    call.end();
    errno = error;
    return result;
}

long any_read(const char *name, int fd, void *to, std::size_t size, std::int64_t at, bool positioned)
{
    const auto real = [&](std::size_t n) {
        return positioned ? syscall(SYS_pread64, fd, to, n, at) : syscall(SYS_read, fd, to, n);
    };
    if (!is_active() || !find_fd(fd))
        return real(size);
    Call call;
    const Deal deal = call.begin(name, kRead, find_fd(fd)->path, "", fd);
    if (deal == Deal::fail)
        return fail();
    if (deal == Deal::pass)
        return real(size);
    // Half of what there is.
    const std::int64_t start = positioned ? at : syscall(SYS_lseek, fd, 0, SEEK_CUR);
    const long there = real(size);
    if (there <= 1)
        return fail();
    if (!positioned)
        syscall(SYS_lseek, fd, start + there / 2, SEEK_SET);
    return there / 2;
}

void note_write(std::uint64_t number, const OpenFile &file, std::int64_t at, const void *from, long size)
{
    constexpr char kHex[] = "0123456789abcdef";
    constexpr long kPiece = PATH_MAX;
    const auto *bytes = static_cast<const unsigned char *>(from);
    for (long begin = 0; begin < size; begin += kPiece) {
        char line[kLine];
        const long end = begin + kPiece < size ? begin + kPiece : size;
        int n = std::snprintf(
            line, sizeof line, "done\t%llu\twrite\t%s\t%llu\t%lld\t", static_cast<unsigned long long>(number),
            file.path, static_cast<unsigned long long>(file.inode), static_cast<long long>(at + begin));
        for (long i = begin; i < end; ++i) {
            line[n++] = kHex[bytes[i] >> 4U];
            line[n++] = kHex[bytes[i] & 15U];
        }
        line[n++] = '\n';
        put_line(line, static_cast<std::size_t>(n));
    }
}

long any_write(const char *name, int fd, const void *from, std::size_t size, std::int64_t at, bool positioned)
{
    const auto real = [&](std::size_t n) {
        return positioned ? syscall(SYS_pwrite64, fd, from, n, at) : syscall(SYS_write, fd, from, n);
    };
    if (!is_active() || !find_fd(fd))
        return real(size);
    Call call;
    const OpenFile &file = *find_fd(fd);
    const Deal deal = call.begin(name, kWrite, file.path, "", fd);
    if (deal == Deal::fail || (deal == Deal::half && size < 2 && state->control->action == kHalf))
        return fail();
    std::int64_t start = at;
    if (!positioned) {
        const bool append = (syscall(SYS_fcntl, fd, F_GETFL) & O_APPEND) != 0;
        start = syscall(SYS_lseek, fd, 0, append ? SEEK_END : SEEK_CUR);
    }
    const long n = real(deal == Deal::half ? size / 2 : size);
    const int error = errno;
    if (n > 0 && call.armed())
        note_write(call.number(), file, start, from, n);
    call.end();
    errno = error;
    return n;
}

// A flush is noted, not made.
int any_flush(const char *name, int fd, const char *what)
{
    return on_fd(
        {name, kFlush}, fd, [] { return 0; },
        [&](std::uint64_t number, const OpenFile &file) {
            const auto n = static_cast<unsigned long long>(number);
            note("done\t%llu\t%s\t%s\t%llu\n", n, file.folder ? "flushfolder" : what, file.path,
                 static_cast<unsigned long long>(file.inode));
        });
}

// ---- Names ----

int any_rename(const char *name, int from_folder, const char *from, int to_folder, const char *to,
               unsigned flags)
{
    const auto real = [&] {
        return static_cast<int>(syscall(SYS_renameat2, from_folder, from, to_folder, to, flags));
    };
    if (!is_active())
        return real();
    Call call;
    char source[PATH_MAX];
    char target[PATH_MAX];
    if (!find_path(from_folder, from, source) || !find_path(to_folder, to, target))
        return real();
    if (call.begin(name, kRename, source, target) == Deal::fail)
        return fail();
    const int result = real();
    const int error = errno;
    if (result == 0 && call.armed())
        note("done\t%llu\trename\t%s\t%s\t%u\n", static_cast<unsigned long long>(call.number()), source,
             target, flags);
    call.end();
    errno = error;
    return result;
}

int any_unlink(const char *name, int folder, const char *path, int flags)
{
    return on_path(
        {name, kUnlink}, folder, path,
        [&] { return static_cast<int>(syscall(SYS_unlinkat, folder, path, flags)); },
        [](std::uint64_t number, const char *gone) {
            note("done\t%llu\tunlink\t%s\n", static_cast<unsigned long long>(number), gone);
        });
}

int any_link(const char *name, int from_folder, const char *from, int to_folder, const char *to, int flags)
{
    const auto real = [&] {
        return static_cast<int>(syscall(SYS_linkat, from_folder, from, to_folder, to, flags));
    };
    if (!is_active())
        return real();
    Call call;
    char target[PATH_MAX];
    if (!find_path(to_folder, to, target))
        return real();
    if (call.begin(name, kLink, target) == Deal::fail)
        return fail();
    const int result = real();
    const int error = errno;
    struct stat st {};
    if (result == 0 && call.armed() && syscall(SYS_newfstatat, to_folder, to, &st, AT_SYMLINK_NOFOLLOW) == 0)
        note("done\t%llu\tlink\t%s\t%llu\n", static_cast<unsigned long long>(call.number()), target,
             static_cast<unsigned long long>(st.st_ino));
    call.end();
    errno = error;
    return result;
}

int any_symlink(const char *name, const char *text, int folder, const char *path)
{
    return on_path(
        {name, kLink}, folder, path,
        [&] { return static_cast<int>(syscall(SYS_symlinkat, text, folder, path)); },
        [&](std::uint64_t number, const char *made) {
            note("done\t%llu\tsymlink\t%s\t%s\n", static_cast<unsigned long long>(number), made, text);
        });
}

int any_mkdir(const char *name, int folder, const char *path, mode_t mode)
{
    return on_path(
        {name, kMakeFolder}, folder, path,
        [&] { return static_cast<int>(syscall(SYS_mkdirat, folder, path, mode)); },
        [](std::uint64_t number, const char *made) {
            note("done\t%llu\tmkdir\t%s\n", static_cast<unsigned long long>(number), made);
        });
}

int any_chmod(const char *name, int folder, const char *path, mode_t mode)
{
    return on_path(
        {name, kMode}, folder, path,
        [&] { return static_cast<int>(syscall(SYS_fchmodat, folder, path, mode)); },
        [&](std::uint64_t number, const char *file) {
            note("done\t%llu\tmode\t%s\t\t%o\n", static_cast<unsigned long long>(number), file,
                 mode & 07777U);
        });
}

int any_chown(const char *name, int folder, const char *path, uid_t user, gid_t group, int flags)
{
    return on_path(
        {name, kMode}, folder, path,
        [&] { return static_cast<int>(syscall(SYS_fchownat, folder, path, user, group, flags)); },
        [&](std::uint64_t number, const char *file) {
            note("done\t%llu\towner\t%s\t\t%u\t%u\n", static_cast<unsigned long long>(number), file, user,
                 group);
        });
}

// A call that the model of the disk does not know: the driver refuses a log with such a line.
void note_unknown(const char *name, const char *path)
{
    note("done\t0\tunknown\t%s\t%s\n", name, path);
}

template <class Function>
Function next(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int make_temporary(const char *name, char *path, int suffix, int flags)
{
    // libc's own draws the name and opens it without coming by here.
    static const auto real = next<int (*)(char *, int, int)>("mkostemps");
    if (!is_active())
        return real(path, suffix, flags);
    Call call;
    char canonical_name[PATH_MAX];
    if (!find_path(AT_FDCWD, path, canonical_name))
        return real(path, suffix, flags);
    if (call.begin(name, kCreate, canonical_name) == Deal::fail)
        return fail();
    const int fd = real(path, suffix, flags);
    const int error = errno;
    if (fd >= 0) {
        remember(fd, true);
        if (call.armed() && fd < kMaxFds)
            note_open(call.number(), fd, O_CREAT | O_RDWR, false);
    }
    call.end();
    errno = error;
    return fd;
}

std::FILE *any_fopen(const char *name, const char *path, const char *mode)
{
    static const auto real = next<std::FILE *(*)(const char *, const char *)>("fopen");
    if (!is_active())
        return real(path, mode);
    Call call;
    char canonical_name[PATH_MAX];
    if (!find_path(AT_FDCWD, path, canonical_name))
        return real(path, mode);
    const bool reads = mode[0] == 'r' && !std::strchr(mode, '+');
    if (call.begin(name, reads ? kOpenRead : kCreate, canonical_name) == Deal::fail) {
        fail();
        return nullptr;
    }
    if (!reads && call.armed())
        note_unknown(name, canonical_name);
    std::FILE *file = real(path, mode);
    call.end();
    return file;
}

} // namespace

// ---- The names that the daemon calls ----

// A function of ours under the name of libc's, without its header's attributes in the way.
#define WRAP(result, name, ...)                                                                              \
    extern "C" __attribute__((visibility("default"))) result wrapped_##name(__VA_ARGS__) __asm__(#name);     \
    result wrapped_##name(__VA_ARGS__)

#define WRAP_OPEN(name)                                                                                      \
    WRAP(int, name, const char *path, int flags, ...)                                                        \
    {                                                                                                        \
        va_list args;                                                                                        \
        va_start(args, flags);                                                                               \
        const mode_t mode = mode_argument(flags, args);                                                      \
        va_end(args);                                                                                        \
        return any_open(#name, AT_FDCWD, path, flags, mode);                                                 \
    }
#define WRAP_OPENAT(name)                                                                                    \
    WRAP(int, name, int folder, const char *path, int flags, ...)                                            \
    {                                                                                                        \
        va_list args;                                                                                        \
        va_start(args, flags);                                                                               \
        const mode_t mode = mode_argument(flags, args);                                                      \
        va_end(args);                                                                                        \
        return any_open(#name, folder, path, flags, mode);                                                   \
    }
WRAP_OPEN(open)
WRAP_OPEN(open64)
WRAP_OPEN(__open_2)
WRAP_OPEN(__open64_2)
WRAP_OPENAT(openat)
WRAP_OPENAT(openat64)
WRAP_OPENAT(__openat_2)
WRAP_OPENAT(__openat64_2)
WRAP(int, creat, const char *path, mode_t mode)
{
    return any_open("creat", AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}
WRAP(int, mkstemp, char *path)
{
    return make_temporary("mkstemp", path, 0, 0);
}
WRAP(int, mkstemp64, char *path)
{
    return make_temporary("mkstemp", path, 0, 0);
}
WRAP(int, mkostemp, char *path, int flags)
{
    return make_temporary("mkostemp", path, 0, flags);
}
WRAP(int, mkostemp64, char *path, int flags)
{
    return make_temporary("mkostemp", path, 0, flags);
}
WRAP(std::FILE *, fopen, const char *path, const char *mode)
{
    return any_fopen("fopen", path, mode);
}
WRAP(std::FILE *, fopen64, const char *path, const char *mode)
{
    return any_fopen("fopen", path, mode);
}

WRAP(ssize_t, read, int fd, void *to, std::size_t size)
{
    return any_read("read", fd, to, size, 0, false);
}
WRAP(ssize_t, __read_chk, int fd, void *to, std::size_t size, std::size_t)
{
    return any_read("read", fd, to, size, 0, false);
}
WRAP(ssize_t, pread, int fd, void *to, std::size_t size, off_t at)
{
    return any_read("pread", fd, to, size, at, true);
}
WRAP(ssize_t, pread64, int fd, void *to, std::size_t size, off_t at)
{
    return any_read("pread", fd, to, size, at, true);
}
WRAP(ssize_t, __pread_chk, int fd, void *to, std::size_t size, off_t at, std::size_t)
{
    return any_read("pread", fd, to, size, at, true);
}
WRAP(ssize_t, write, int fd, const void *from, std::size_t size)
{
    return any_write("write", fd, from, size, 0, false);
}
WRAP(ssize_t, pwrite, int fd, const void *from, std::size_t size, off_t at)
{
    return any_write("pwrite", fd, from, size, at, true);
}
WRAP(ssize_t, pwrite64, int fd, const void *from, std::size_t size, off_t at)
{
    return any_write("pwrite", fd, from, size, at, true);
}
WRAP(ssize_t, readv, int fd, const iovec *pieces, int count)
{
    if (is_active() && find_fd(fd)) // one piece at a time is what it may do
        return count > 0 ? any_read("readv", fd, pieces[0].iov_base, pieces[0].iov_len, 0, false) : 0;
    return syscall(SYS_readv, fd, pieces, count);
}
WRAP(ssize_t, writev, int fd, const iovec *pieces, int count)
{
    if (!is_active() || !find_fd(fd))
        return syscall(SYS_writev, fd, pieces, count);
    for (int i = 0; i < count; ++i)
        if (pieces[i].iov_len)
            return any_write("writev", fd, pieces[i].iov_base, pieces[i].iov_len, 0, false);
    return 0;
}

#define WRAP_TRUNCATE(name)                                                                                  \
    WRAP(int, name, int fd, off_t size)                                                                      \
    {                                                                                                        \
        return on_fd(                                                                                        \
            {"ftruncate", kTruncate}, fd,                                                                    \
            [&] { return static_cast<int>(syscall(SYS_ftruncate, fd, size)); },                              \
            [&](std::uint64_t number, const OpenFile &file) {                                                \
                note("done\t%llu\ttruncate\t%s\t%llu\t%lld\n", static_cast<unsigned long long>(number),      \
                     file.path, static_cast<unsigned long long>(file.inode), static_cast<long long>(size));  \
            });                                                                                              \
    }
WRAP_TRUNCATE(ftruncate)
WRAP_TRUNCATE(ftruncate64)

int any_truncate(const char *path, off_t size)
{
    return on_path(
        {"truncate", kTruncate}, AT_FDCWD, path,
        [&] { return static_cast<int>(syscall(SYS_truncate, path, size)); },
        [&](std::uint64_t number, const char *file) {
            note("done\t%llu\ttruncate\t%s\t\t%lld\n", static_cast<unsigned long long>(number), file,
                 static_cast<long long>(size));
        });
}
WRAP(int, truncate, const char *path, off_t size)
{
    return any_truncate(path, size);
}
WRAP(int, truncate64, const char *path, off_t size)
{
    return any_truncate(path, size);
}

WRAP(int, fsync, int fd)
{
    return is_active() && find_fd(fd) ? any_flush("fsync", fd, "flush")
                                      : static_cast<int>(syscall(SYS_fsync, fd));
}
WRAP(int, fdatasync, int fd)
{
    return is_active() && find_fd(fd) ? any_flush("fdatasync", fd, "flushdata")
                                      : static_cast<int>(syscall(SYS_fdatasync, fd));
}
WRAP(int, syncfs, int fd)
{
    if (!is_active() || !find_fd(fd))
        return static_cast<int>(syscall(SYS_syncfs, fd));
    return on_fd(
        {"syncfs", kFlush}, fd, [] { return 0; },
        [](std::uint64_t number, const OpenFile &) {
            note("done\t%llu\tflushall\n", static_cast<unsigned long long>(number));
        });
}
WRAP(void, sync)
{
    if (!is_active())
        return;
    Call call;
    call.begin("sync", kFlush, state->root); // it cannot fail
    if (call.armed())
        note("done\t%llu\tflushall\n", static_cast<unsigned long long>(call.number()));
    call.end();
}

WRAP(int, rename, const char *from, const char *to)
{
    return any_rename("rename", AT_FDCWD, from, AT_FDCWD, to, 0);
}
WRAP(int, renameat, int a, const char *from, int b, const char *to)
{
    return any_rename("renameat", a, from, b, to, 0);
}
WRAP(int, renameat2, int a, const char *from, int b, const char *to, unsigned flags)
{
    return any_rename("renameat2", a, from, b, to, flags);
}
WRAP(int, unlink, const char *path)
{
    return any_unlink("unlink", AT_FDCWD, path, 0);
}
WRAP(int, unlinkat, int folder, const char *path, int flags)
{
    return any_unlink("unlinkat", folder, path, flags);
}
WRAP(int, rmdir, const char *path)
{
    return any_unlink("rmdir", AT_FDCWD, path, AT_REMOVEDIR);
}
WRAP(int, remove, const char *path)
{
    struct stat st {};
    const bool folder =
        syscall(SYS_newfstatat, AT_FDCWD, path, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
    return any_unlink("remove", AT_FDCWD, path, folder ? AT_REMOVEDIR : 0);
}
WRAP(int, link, const char *from, const char *to)
{
    return any_link("link", AT_FDCWD, from, AT_FDCWD, to, 0);
}
WRAP(int, linkat, int a, const char *from, int b, const char *to, int flags)
{
    return any_link("linkat", a, from, b, to, flags);
}
WRAP(int, symlink, const char *text, const char *path)
{
    return any_symlink("symlink", text, AT_FDCWD, path);
}
WRAP(int, symlinkat, const char *text, int folder, const char *path)
{
    return any_symlink("symlinkat", text, folder, path);
}
WRAP(int, mkdir, const char *path, mode_t mode)
{
    return any_mkdir("mkdir", AT_FDCWD, path, mode);
}
WRAP(int, mkdirat, int folder, const char *path, mode_t mode)
{
    return any_mkdir("mkdirat", folder, path, mode);
}
WRAP(int, chmod, const char *path, mode_t mode)
{
    return any_chmod("chmod", AT_FDCWD, path, mode);
}
WRAP(int, fchmodat, int folder, const char *path, mode_t mode, int)
{
    return any_chmod("fchmodat", folder, path, mode);
}
WRAP(int, fchmod, int fd, mode_t mode)
{
    return on_fd(
        {"fchmod", kMode}, fd, [&] { return static_cast<int>(syscall(SYS_fchmod, fd, mode)); },
        [&](std::uint64_t number, const OpenFile &file) {
            note("done\t%llu\tmode\t%s\t%llu\t%o\n", static_cast<unsigned long long>(number), file.path,
                 static_cast<unsigned long long>(file.inode), mode & 07777U);
        });
}
WRAP(int, chown, const char *path, uid_t user, gid_t group)
{
    return any_chown("chown", AT_FDCWD, path, user, group, 0);
}
WRAP(int, lchown, const char *path, uid_t user, gid_t group)
{
    return any_chown("lchown", AT_FDCWD, path, user, group, AT_SYMLINK_NOFOLLOW);
}
WRAP(int, fchown, int fd, uid_t user, gid_t group)
{
    return on_fd(
        {"fchown", kMode}, fd, [&] { return static_cast<int>(syscall(SYS_fchown, fd, user, group)); },
        [&](std::uint64_t number, const OpenFile &file) {
            note("done\t%llu\towner\t%s\t%llu\t%u\t%u\n", static_cast<unsigned long long>(number), file.path,
                 static_cast<unsigned long long>(file.inode), user, group);
        });
}

// What was written reaches the file at the latest here: an error counts. The descriptor is gone in any case.
WRAP(int, close, int fd)
{
    const auto real = [&] { return static_cast<int>(syscall(SYS_close, fd)); };
    if (!is_active() || !find_fd(fd))
        return real();
    OpenFile &file = *find_fd(fd);
    file.known = false;
    if (state->doomed == fd)
        state->doomed = -1;
    if (!file.written)
        return real();
    Call call;
    const Deal deal = call.begin("close", kClose, file.path);
    const int result = real();
    call.end();
    return deal == Deal::fail ? fail() : result;
}

// ---- Looking and listing ----

#define WRAP_STAT(name, flags)                                                                               \
    WRAP(int, name, const char *path, struct stat *to)                                                       \
    {                                                                                                        \
        return look_at(#name, AT_FDCWD, path, [&] {                                                          \
            return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, path, to, flags));                     \
        });                                                                                                  \
    }
WRAP_STAT(stat, 0)
WRAP_STAT(stat64, 0)
WRAP_STAT(lstat, AT_SYMLINK_NOFOLLOW)
WRAP_STAT(lstat64, AT_SYMLINK_NOFOLLOW)

#define WRAP_FSTAT(name)                                                                                     \
    WRAP(int, name, int fd, struct stat *to)                                                                 \
    {                                                                                                        \
        return on_fd(                                                                                        \
            {"fstat", kLook}, fd, [&] { return static_cast<int>(syscall(SYS_fstat, fd, to)); },              \
            [](std::uint64_t, const OpenFile &) {});                                                         \
    }
WRAP_FSTAT(fstat)
WRAP_FSTAT(fstat64)

#define WRAP_FSTATAT(name)                                                                                   \
    WRAP(int, name, int folder, const char *path, struct stat *to, int flags)                                \
    {                                                                                                        \
        return look_at("fstatat", folder, path,                                                              \
                       [&] { return static_cast<int>(syscall(SYS_newfstatat, folder, path, to, flags)); });  \
    }
WRAP_FSTATAT(fstatat)
WRAP_FSTATAT(fstatat64)

WRAP(int, statx, int folder, const char *path, int flags, unsigned mask, struct statx *to)
{
    return look_at("statx", folder, path,
                   [&] { return static_cast<int>(syscall(SYS_statx, folder, path, flags, mask, to)); });
}
WRAP(int, access, const char *path, int mode)
{
    return look_at("access", AT_FDCWD, path,
                   [&] { return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode)); });
}
WRAP(ssize_t, readlink, const char *path, char *to, std::size_t size)
{
    return look_at("readlink", AT_FDCWD, path, [&] { return syscall(SYS_readlink, path, to, size); });
}
WRAP(ssize_t, readlinkat, int folder, const char *path, char *to, std::size_t size)
{
    return look_at("readlinkat", folder, path,
                   [&] { return syscall(SYS_readlinkat, folder, path, to, size); });
}
WRAP(int, statfs, const char *path, struct statfs *to)
{
    return look_at("statfs", AT_FDCWD, path, [&] { return static_cast<int>(syscall(SYS_statfs, path, to)); });
}
WRAP(int, statfs64, const char *path, struct statfs *to)
{
    return look_at("statfs", AT_FDCWD, path, [&] { return static_cast<int>(syscall(SYS_statfs, path, to)); });
}
WRAP(int, fstatfs, int fd, struct statfs *to)
{
    return on_fd(
        {"fstatfs", kLook}, fd, [&] { return static_cast<int>(syscall(SYS_fstatfs, fd, to)); },
        [](std::uint64_t, const OpenFile &) {});
}

WRAP(char *, realpath, const char *path, char *to)
{
    static const auto real = next<char *(*)(const char *, char *)>("realpath");
    if (!is_active())
        return real(path, to);
    Call call;
    char name[PATH_MAX];
    if (find_path(AT_FDCWD, path, name) && call.begin("realpath", kLook, name) == Deal::fail) {
        fail();
        return nullptr;
    }
    return real(path, to);
}

WRAP(DIR *, opendir, const char *path)
{
    static const auto real = next<DIR *(*)(const char *)>("opendir");
    if (!is_active())
        return real(path);
    Call call;
    char name[PATH_MAX];
    if (!find_path(AT_FDCWD, path, name))
        return real(path);
    if (call.begin("opendir", kOpenRead, name) == Deal::fail) {
        fail();
        return nullptr;
    }
    DIR *folder = real(path);
    if (folder)
        remember(dirfd(folder), false);
    return folder;
}

#define WRAP_READDIR(name)                                                                                   \
    WRAP(struct dirent *, name, DIR *folder)                                                                 \
    {                                                                                                        \
        static const auto real = next<struct dirent *(*)(DIR *)>(#name);                                     \
        const OpenFile *file = is_active() ? find_fd(dirfd(folder)) : nullptr;                               \
        if (!file)                                                                                           \
            return real(folder);                                                                             \
        Call call;                                                                                           \
        if (call.begin(#name, kList, file->path) == Deal::fail) {                                            \
            fail();                                                                                          \
            return nullptr;                                                                                  \
        }                                                                                                    \
        return real(folder);                                                                                 \
    }
WRAP_READDIR(readdir)
WRAP_READDIR(readdir64)

WRAP(int, closedir, DIR *folder)
{
    static const auto real = next<int (*)(DIR *)>("closedir");
    if (is_active())
        if (OpenFile *file = find_fd(dirfd(folder)))
            file->known = false;
    return real(folder);
}

// ---- Mapped files, as SQLite has one ----

WRAP(void *, mmap64, void *where, std::size_t size, int protection, int flags, int fd, off_t at)
{
    const auto real = [&] { return syscall(SYS_mmap, where, size, protection, flags, fd, at); };
    const auto changed = [](std::uint64_t, const OpenFile &) {};
    return reinterpret_cast<void *>(on_fd({"mmap", kMap}, fd, real, changed));
}

// ---- Calls that change nothing that counts ----

WRAP(int, fallocate, int fd, int mode, off_t at, off_t size)
{
    return on_fd(
        {"fallocate", kWrite}, fd,
        [&] { return static_cast<int>(syscall(SYS_fallocate, fd, mode, at, size)); },
        [&](std::uint64_t, const OpenFile &file) {
            if ((mode & FALLOC_FL_KEEP_SIZE) == 0)
                note_unknown("fallocate", file.path);
        });
}
WRAP(int, sync_file_range, int fd, off_t at, off_t size, unsigned flags)
{
    return on_fd(
        {"sync_file_range", kFlush}, fd,
        [&] { return static_cast<int>(syscall(SYS_sync_file_range, fd, at, size, flags)); },
        [](std::uint64_t, const OpenFile &) {});
}
WRAP(int, fsetxattr, int fd, const char *name, const void *value, std::size_t size, int flags)
{
    return on_fd(
        {"fsetxattr", kMode}, fd,
        [&] { return static_cast<int>(syscall(SYS_fsetxattr, fd, name, value, size, flags)); },
        [](std::uint64_t, const OpenFile &) {});
}
WRAP(ssize_t, listxattr, const char *path, char *to, std::size_t size)
{
    return look_at("listxattr", AT_FDCWD, path, [&] { return syscall(SYS_listxattr, path, to, size); });
}
WRAP(ssize_t, getxattr, const char *path, const char *name, void *to, std::size_t size)
{
    return look_at("getxattr", AT_FDCWD, path, [&] { return syscall(SYS_getxattr, path, name, to, size); });
}

// ---- Calls that the model of the disk does not know ----

WRAP(ssize_t, sendfile, int to, int from, off_t *at, std::size_t size)
{
    if (is_active() && find_fd(to))
        note_unknown("sendfile", find_fd(to)->path);
    return syscall(SYS_sendfile, to, from, at, size);
}
WRAP(ssize_t, copy_file_range, int from, off_t *from_at, int to, off_t *to_at, std::size_t size,
     unsigned flags)
{
    if (is_active() && find_fd(to))
        note_unknown("copy_file_range", find_fd(to)->path);
    return syscall(SYS_copy_file_range, from, from_at, to, to_at, size, flags);
}

// ---- Memory ----

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *old, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

// Where the memory was wanted, on stderr: addresses of the programs' symbols.
void show_place()
{
    void *frames[24];
    inside = true;
    const int depth = backtrace(frames, 24);
    constexpr char kTitle[] = "faults: this allocation fails:\n";
    syscall(SYS_write, STDERR_FILENO, kTitle, sizeof kTitle - 1);
    backtrace_symbols_fd(frames, depth, STDERR_FILENO);
    inside = false;
}

bool memory_is_out()
{
    if (!state || inside || state->control->count_allocations.load(std::memory_order_relaxed) == 0 ||
        state->process != static_cast<pid_t>(syscall(SYS_getpid)))
        return false;
    Control &control = *state->control;
    if (++control.allocations != control.allocation_at)
        return false;
    ++control.allocations_failed;
    show_place();
    errno = ENOMEM;
    return true;
}

} // namespace

WRAP(void *, malloc, std::size_t size)
{
    return memory_is_out() ? nullptr : __libc_malloc(size);
}
WRAP(void *, calloc, std::size_t count, std::size_t size)
{
    return memory_is_out() ? nullptr : __libc_calloc(count, size);
}
WRAP(void *, realloc, void *old, std::size_t size)
{
    return memory_is_out() ? nullptr : __libc_realloc(old, size);
}
WRAP(void *, memalign, std::size_t alignment, std::size_t size)
{
    return memory_is_out() ? nullptr : __libc_memalign(alignment, size);
}
WRAP(void *, aligned_alloc, std::size_t alignment, std::size_t size)
{
    return memory_is_out() ? nullptr : __libc_memalign(alignment, size);
}
WRAP(int, posix_memalign, void **out, std::size_t alignment, std::size_t size)
{
    void *memory = memory_is_out() ? nullptr : __libc_memalign(alignment, size);
    if (!memory)
        return ENOMEM;
    *out = memory;
    return 0;
}

// ---- Start ----

namespace {

void *map_or_abort(int fd, std::size_t size)
{
    const int flags = fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, fd, 0);
    if (memory == MAP_FAILED)
        std::abort();
    return memory;
}

// Above the descriptors that the daemon draws, so that they are the same with and without us.
int open_high(const char *path, int flags)
{
    const long low = syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, 0);
    const long high = low < 0 ? -1 : syscall(SYS_fcntl, low, F_DUPFD_CLOEXEC, 900);
    if (high < 0)
        std::abort();
    syscall(SYS_close, low);
    return static_cast<int>(high);
}

__attribute__((constructor)) void start()
{
    const char *control = std::getenv("QVCD_FAULTS_CONTROL");
    const char *log = std::getenv("QVCD_FAULTS_LOG");
    const char *root = std::getenv("QV_SYSROOT");
    const char *spare = std::getenv("QVCD_FAULTS_SPARE");
    unsetenv("LD_PRELOAD");
    if (!control || !log || !root)
        return;
    static State the_state;
    std::snprintf(the_state.root, sizeof the_state.root, "%s", root);
    the_state.root_size = std::strlen(the_state.root);
    std::snprintf(the_state.spare, sizeof the_state.spare, "%s", spare ? spare : "");
    the_state.process = static_cast<pid_t>(syscall(SYS_getpid));
    the_state.files = static_cast<OpenFile *>(map_or_abort(-1, sizeof(OpenFile) * kMaxFds));
    const int fd = open_high(control, O_RDWR);
    the_state.control = static_cast<Control *>(map_or_abort(fd, sizeof(Control)));
    syscall(SYS_close, fd);
    the_state.log = open_high(log, O_WRONLY | O_APPEND);
    void *frame = nullptr;
    backtrace(&frame, 1);                      // its first call allocates
    prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0); // a driver that is killed leaves no daemon behind
    state = &the_state;
}

} // namespace

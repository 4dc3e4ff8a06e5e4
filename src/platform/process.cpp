#include "platform/process.h"

#include "platform/fd.h"
#include "platform/log.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/file.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>

namespace qvcd {

namespace {

constexpr mode_t kPidFileMode = 0644;
constexpr mode_t kUmask = 022;

// Used by the main thread only. The lock on a process ID file lives as long as its descriptor.
struct Process {
    bool daemon = false;
    Fd parent; // the parent of a daemonised process waits until this end of the pipe closes
    std::map<std::string, Fd> pid_files;
};

Process &process()
{
    static Process *const p = new Process; // never destroyed: the locks hold to the very end
    return *p;
}

int fail(const std::string &text)
{
    qv_report_failure(text + ": " + std::strerror(errno));
    return -1;
}

// Whoever starts us without stdin, stdout or stderr must not get our pipe or files in their places.
void fill_standard_descriptors()
{
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = ::open("/dev/null", O_RDWR);
    Fd surplus(fd);
}

bool put_on_dev_null(std::initializer_list<int> descriptors)
{
    const Fd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null)
        return false;
    for (const int fd : descriptors) {
        if (::dup2(null.get(), fd) < 0)
            return false;
    }
    return true;
}

// The parent stays until the daemon serves (or is dead), so that whoever started it may talk to it at once.
[[noreturn]] void wait_as_parent(int pipe)
{
    char byte = 0;
    while (::read(pipe, &byte, 1) < 0 && errno == EINTR) {
    }
    ::_exit(0);
}

} // namespace

int qv_daemonize()
{
    fill_standard_descriptors();
    std::fflush(nullptr); // else both processes would print what is buffered
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return fail("cannot daemonise");
    Fd reader(ends[0]);
    Fd writer(ends[1]);
    const pid_t child = ::fork();
    if (child < 0)
        return fail("cannot daemonise");
    if (child > 0) {
        writer.reset();
        wait_as_parent(reader.get());
    }
    process().daemon = true;
    process().parent = std::move(writer);
    ::umask(kUmask);
    if (::setsid() < 0 || ::chdir("/") != 0 || !put_on_dev_null({STDIN_FILENO, STDOUT_FILENO}))
        return fail("cannot daemonise");
    return 0;
}

void qv_daemon_ready()
{
    ::sd_notify(0, "READY=1");
    if (!process().daemon)
        return;
    put_on_dev_null({STDERR_FILENO});
    process().parent.reset();
}

// ---- Process ID file ----

namespace {

bool same_file(int fd, const std::string &path)
{
    struct stat open_one {};
    struct stat named {};
    return ::fstat(fd, &open_one) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           open_one.st_dev == named.st_dev && open_one.st_ino == named.st_ino;
}

std::string holder(int fd)
{
    std::array<char, 16> text{};
    const ssize_t n = ::pread(fd, text.data(), text.size() - 1, 0);
    return n > 0 ? std::to_string(std::atol(text.data())) : "unknown";
}

// Opens the file and takes its lock. An empty Fd: reported.
Fd lock_pid_file(const std::string &path)
{
    for (;;) {
        Fd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                     kPidFileMode));
        struct stat status {};
        if (!fd || ::fstat(fd.get(), &status) != 0) {
            fail("cannot write the process ID file " + path);
            return Fd();
        }
        if (!S_ISREG(status.st_mode)) {
            qv_report_failure("cannot write the process ID file " + path + ": it is no regular file");
            return Fd();
        }
        if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK) {
                fail("cannot lock the process ID file " + path);
                return Fd();
            }
            qv_report_failure("the process ID file " + path + " is held by a running daemon, process " +
                              holder(fd.get()));
            return Fd();
        }
        // A daemon that ended between our open and our lock has removed the name.
        if (same_file(fd.get(), path))
            return fd;
    }
}

} // namespace

int qv_create_pid_file(const std::string &path)
{
    if (process().pid_files.contains(path))
        return 0;
    Fd fd = lock_pid_file(path);
    if (!fd)
        return -1;
    const std::string text = std::to_string(::getpid()) + "\n";
    const auto size = static_cast<ssize_t>(text.size());
    if (::pwrite(fd.get(), text.data(), text.size(), 0) != size || ::ftruncate(fd.get(), size) != 0)
        return fail("cannot write the process ID file " + path);
    process().pid_files.emplace(path, std::move(fd));
    return 0;
}

void qv_remove_pid_file(const std::string &path)
{
    const auto held = process().pid_files.extract(path);
    if (held && same_file(held.mapped().get(), path))
        ::unlink(path.c_str());
}

} // namespace qvcd

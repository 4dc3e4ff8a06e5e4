#include "platform/process.h"

#include "platform/fd.h"
#include "platform/lock_file.h"
#include "platform/log.h"
#include "platform/service_manager.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/stat.h>

namespace qvcd {

namespace {

constexpr mode_t kPidFileMode = 0644;
constexpr mode_t kUmask = 022;

// Used by the main thread only. The lock on a process ID file lives as long as its descriptor.
struct Process {
    bool daemon = false;
    Fd parent; // where the parent of a daemonised process waits for a byte
    std::map<std::string, LockFile> pid_files;
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
    ssize_t n = -1;
    while ((n = ::read(pipe, &byte, 1)) < 0 && errno == EINTR) {
    }
    ::_exit(n == 1 ? 0 : 1);
}

} // namespace

void qv_fill_standard_descriptors()
{
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = ::open("/dev/null", O_RDWR);
    Fd surplus(fd);
}

int qv_daemonize()
{
    qv_fill_standard_descriptors();
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
    tell_service_manager("READY=1");
    if (!process().daemon)
        return;
    put_on_dev_null({STDERR_FILENO});
    const char byte = '!';
    while (::write(process().parent.get(), &byte, 1) < 0 && errno == EINTR) {
    }
    process().parent.reset();
}

// ---- Process ID file ----

int qv_create_pid_file(const std::string &path)
{
    if (process().pid_files.contains(path))
        return 0;
    LockFile file = open_lock_file(path, kPidFileMode);
    if (!file.failure.empty()) {
        qv_report_failure("cannot write the process ID file " + path + ": " + file.failure);
        return -1;
    }
    if (!file.ours) {
        const int holder = std::atoi(read_lock_file(file).c_str());
        qv_report_failure("the process ID file " + path + " is held by a running daemon, process " +
                          (holder > 0 ? std::to_string(holder) : "unknown"));
        return -1;
    }
    if (!write_lock_file(file, std::to_string(::getpid()) + "\n"))
        return fail("cannot write the process ID file " + path);
    process().pid_files.emplace(path, std::move(file));
    return 0;
}

void qv_remove_pid_file(const std::string &path)
{
    const auto held = process().pid_files.extract(path);
    if (held)
        remove_lock_file(held.mapped(), path);
}

} // namespace qvcd

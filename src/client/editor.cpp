#include "client/editor.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include "client/errors.h"
#include "platform/fd.h"

namespace qvcd::client {

namespace {

[[noreturn]] void throw_system(int error)
{
    throw std::system_error(error, std::generic_category(), "cannot run the editor");
}

std::string editor()
{
    for (const char *variable : {"VISUAL", "EDITOR"}) {
        if (const char *program = std::getenv(variable); program && *program != '\0')
            return program;
    }
    return "vi";
}

// Keys that interrupt are for the editor alone while it runs.
class DeafToKeys {
  public:
    DeafToKeys()
    {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGINT, &ignore, &interrupt_);
        sigaction(SIGQUIT, &ignore, &quit_);
    }
    ~DeafToKeys()
    {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGQUIT, &quit_, nullptr);
    }
    DeafToKeys(const DeafToKeys &) = delete;
    DeafToKeys &operator=(const DeafToKeys &) = delete;

  private:
    struct sigaction interrupt_ {};
    struct sigaction quit_ {};
};

// With the signals as a program expects to find them. The variable may hold a program with arguments, as
// elsewhere.
pid_t start(const std::string &path)
{
    std::string shell = "sh";
    std::string option = "-c";
    std::string command = "exec " + editor() + " \"$0\"";
    std::string file = path;
    const std::array<char *, 5> words{shell.data(), option.data(), command.data(), file.data(), nullptr};
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, "/bin/sh", nullptr, &attributes, words.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        throw_system(error);
    return pid;
}

int status_of(pid_t pid)
{
    int status = -1;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
        continue;
    return status;
}

} // namespace

void run_editor(const std::string &path, SignalInput &signals)
{
    std::fflush(stdout);
    const DeafToKeys deaf;
    const pid_t pid = start(path);
    const Fd ended(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    const bool is_signalled = ended && signals.wait(ended.get(), -1) == SignalInput::Came::signal;
    if (is_signalled)
        kill(pid, SIGTERM);
    const int status = status_of(pid);
    if (is_signalled)
        throw std::runtime_error("ended by a signal; nothing more is changed");
    if (status != 0)
        throw UsageError("the editor failed; nothing more is changed");
}

} // namespace qvcd::client

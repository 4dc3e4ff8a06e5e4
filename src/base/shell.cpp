#include "base/shell.h"

#include "base/command_lock.h"
#include "platform/fd.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

namespace qvcd {

namespace {

class FileActions {
  public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions &) = delete;
    FileActions &operator=(const FileActions &) = delete;
    posix_spawn_file_actions_t *get() { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_;
};

class Attributes {
  public:
    Attributes()
    {
        posix_spawnattr_init(&attributes_);
        // The daemon ignores SIGPIPE; its children should not.
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes_, &defaults);
        // Its threads block SIGINT, so that only the main loop's sleep is interrupted.
        sigset_t nothing;
        sigemptyset(&nothing);
        posix_spawnattr_setsigmask(&attributes_, &nothing);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;
    const posix_spawnattr_t *get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_;
};

// Returns the child's ID, or -1. `stdout_fd` is the child's stdout unless it is -1.
pid_t spawn_shell(const std::string &command, int stdout_fd)
{
    FileActions actions;
    if (stdout_fd >= 0)
        posix_spawn_file_actions_adddup2(actions.get(), stdout_fd, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1);
    const Attributes attributes;
    std::string sh = "sh";
    std::string dash_c = "-c";
    std::string text = command;
    std::array<char *, 4> argv{sh.data(), dash_c.data(), text.data(), nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, "/bin/sh", actions.get(), attributes.get(), argv.data(), environ) != 0)
        return -1;
    return child;
}

int wait_for(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return 1;
    }
    return status;
}

} // namespace

int shell_run(const std::string &command)
{
    const Unlocked unlocked;
    const pid_t child = spawn_shell(command, -1);
    return child < 0 ? 1 : wait_for(child);
}

std::optional<std::string> shell_capture(const std::string &command, std::size_t limit)
{
    const Unlocked unlocked;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    const Fd reader(ends[0]);
    Fd writer(ends[1]);
    const pid_t child = spawn_shell(command, writer.get());
    writer.reset();
    if (child < 0)
        return std::nullopt;
    std::string text;
    std::array<char, 4096> block;
    for (;;) {
        const ssize_t n = read(reader.get(), block.data(), block.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        if (text.size() < limit)
            text.append(block.data(), std::min(static_cast<std::size_t>(n), limit - text.size()));
    }
    wait_for(child);
    return text;
}

std::string shell_quote(std::string_view word)
{
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

} // namespace qvcd

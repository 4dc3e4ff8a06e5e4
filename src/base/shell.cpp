#include "base/shell.h"

#include "base/command_lock.h"
#include "base/limits.h"
#include "base/shell_output.h"
#include "base/text.h"
#include "base/turn.h"
#include "platform/fd.h"
#include "platform/log.h"
#include "platform/thread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qvcd {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto kGrace = 1s;       // between SIGTERM and SIGKILL
constexpr auto kEnding = 3s;      // what to end a group takes, and some more
constexpr auto kLong = 10s;       // the log names who runs for so long
constexpr auto kLookAgain = 20ms; // where the kernel cannot tell of a child's end
constexpr std::size_t kLoggedBytes = 255;
constexpr int kNotRun = 1; // as if fork(2) had failed

thread_local milliseconds limit_each = milliseconds::max();
thread_local Deadline limit_until = Deadline::max();
thread_local ShellErrors *shell_errors = nullptr;

milliseconds bounded(milliseconds limit)
{
    limit = std::min(limit, limit_each);
    if (limit_until == Deadline::max())
        return limit;
    const auto left = std::chrono::ceil<milliseconds>(limit_until - std::chrono::steady_clock::now());
    return std::clamp(left, 0ms, limit);
}

void warn(const char *what, const std::string &command)
{
    qv_log_print(kLogWarning, "%s: %s\n", what, cut(command, kLoggedBytes).c_str());
}

// ---- Starting ----

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
        // Its threads block SIGINT and SIGHUP, so that only the main loop's sleep is interrupted.
        sigset_t nothing;
        sigemptyset(&nothing);
        posix_spawnattr_setsigmask(&attributes_, &nothing);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_,
                                 POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;
    const posix_spawnattr_t *get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_;
};

// Nobody but the daemon speaks for it to the service manager.
std::vector<char *> environment_of_commands()
{
    std::vector<char *> kept;
    for (char **entry = environ; *entry; ++entry) {
        const std::string_view variable = *entry;
        if (!variable.starts_with("NOTIFY_SOCKET=") && !variable.starts_with("WATCHDOG_"))
            kept.push_back(*entry);
    }
    kept.push_back(nullptr);
    return kept;
}

// What a child has in place of /dev/null and the daemon's own stdout and stderr.
struct ChildStreams {
    int in = -1;
    int out = -1;
    int errors = -1;
};

// Returns the child's ID, or -1 with errno set.
pid_t spawn_shell(const std::string &command, const ChildStreams &streams)
{
    FileActions actions;
    if (streams.in >= 0)
        posix_spawn_file_actions_adddup2(actions.get(), streams.in, STDIN_FILENO);
    else
        posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (streams.out >= 0)
        posix_spawn_file_actions_adddup2(actions.get(), streams.out, STDOUT_FILENO);
    if (streams.errors >= 0)
        posix_spawn_file_actions_adddup2(actions.get(), streams.errors, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1);
    const Attributes attributes;
    std::string sh = "sh";
    std::string dash_c = "-c";
    std::string text = command;
    std::array<char *, 4> argv{sh.data(), dash_c.data(), text.data(), nullptr};
    pid_t child = -1;
    errno = posix_spawn(&child, "/bin/sh", actions.get(), attributes.get(), argv.data(),
                        environment_of_commands().data());
    return errno == 0 ? child : -1;
}

// ---- Waiting ----

// The child stays a zombie, so that its number stays its own.
bool has_ended(pid_t child)
{
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid == child;
}

// Where a command prints; null for what nobody reads.
struct Streams {
    ShellOutput *output = nullptr;
    ShellOutput *errors = nullptr;
};

int reader_of(const ShellOutput *stream)
{
    return stream ? stream->reader() : -1;
}

// True when the shell has ended by itself before the deadline.
bool ends_in_time(pid_t child, Streams streams, Deadline deadline)
{
    const Fd end(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        auto left = std::max(std::chrono::ceil<milliseconds>(deadline - now), milliseconds(0));
        if (!end)
            left = std::min<milliseconds>(left, kLookAgain);
        std::array<pollfd, 3> waits{{{end.get(), POLLIN, 0},
                                     {reader_of(streams.output), POLLIN, 0},
                                     {reader_of(streams.errors), POLLIN, 0}}};
        constexpr milliseconds kLongest = 1h; // poll counts in int
        poll(waits.data(), waits.size(), static_cast<int>(std::min(left, kLongest).count()));
        if (waits[1].revents != 0)
            streams.output->read_block();
        if (waits[2].revents != 0)
            streams.errors->read_block();
        if (has_ended(child)) {
            if (streams.output)
                streams.output->read_rest();
            return true;
        }
        if (now >= deadline)
            return false;
    }
}

int reap(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return kNotRun;
    }
    return status;
}

// The group gets its second even when the shell itself goes at once: others of it may have to tidy up.
// Signals go out before the shell is reaped: until then nobody else can have its number.
void end_group(pid_t child, std::unique_ptr<Turn> turn)
{
    kill(-child, SIGTERM);
    std::this_thread::sleep_for(kGrace);
    kill(-child, SIGKILL);
    if (ends_in_time(child, {}, deadline_in(kGrace))) {
        reap(child);
        return;
    }
    // The kernel holds it, as it does when a device is dead. Nobody waits for it, but the same command does
    // not run again before it is gone.
    try {
        start_quiet_thread([child, kept = std::move(turn)] { reap(child); }).detach();
    } catch (const std::system_error &) {
    }
}

// What a command left behind may go on printing, and a pipe that nobody reads kills who writes. A reader of
// its own lives as long as the writers do, even beyond the daemon.
void leave_to_reader(const Fd &pipe)
{
    fcntl(pipe.get(), F_SETFL, 0);
    const pid_t child = spawn_shell("{ cat <&3 >/dev/null 2>&1 & } 3<&0", {.in = pipe.get()});
    if (child >= 0)
        reap(child);
}

// The stderr of one command, for the thread's ShellErrors if there is one. Where there can be no pipe it goes
// where it always goes.
class KeptErrors {
  public:
    KeptErrors() : wanted_(shell_errors), stream_(ShellErrors::kMostBytes)
    {
        if (wanted_ && !stream_.open())
            wanted_ = nullptr;
    }
    ~KeptErrors()
    {
        if (!wanted_)
            return;
        stream_.close_writer();
        stream_.empty();
        wanted_->append(stream_.text());
        if (stream_.reader() >= 0)
            leave_to_reader(stream_.take_reader());
    }
    KeptErrors(const KeptErrors &) = delete;
    KeptErrors &operator=(const KeptErrors &) = delete;
    int writer() const { return wanted_ ? stream_.writer() : -1; }
    ShellOutput *stream() { return wanted_ ? &stream_ : nullptr; }

  private:
    ShellErrors *wanted_;
    ShellOutput stream_;
};

// The status, or nothing when the command has not run.
std::optional<int> run(const std::string &command, milliseconds limit, const std::string &key,
                       ShellOutput *output)
{
    if (!command_can_wait()) {
        warn("not run, the system gives no more threads", command);
        return std::nullopt;
    }
    const Unlocked unlocked;
    const milliseconds patience = bounded(output ? limit : limit + kEnding);
    auto turn =
        std::make_unique<Turn>(key, deadline_in(patience), output ? Turn::Result::shared : Turn::Result::own);
    if (output && turn->shared()) {
        output->set(*turn->shared());
        return 0;
    }
    limit = bounded(limit);
    if (!turn->mine() || limit == 0ms) {
        warn(limit == 0ms ? "not run, no time is left" : "not run, the one before it has not ended", command);
        return std::nullopt;
    }
    const bool ready = !output || output->open();
    KeptErrors errors;
    const pid_t child =
        ready ? spawn_shell(command, {.out = output ? output->writer() : -1, .errors = errors.writer()}) : -1;
    if (child < 0) {
        warn(std::strerror(errno), command);
        return std::nullopt;
    }
    if (output)
        output->close_writer();
    const Streams streams{output, errors.stream()};
    const Deadline deadline = deadline_in(limit);
    bool ended = ends_in_time(child, streams, deadline_in(std::min<milliseconds>(limit, kLong)));
    if (!ended && limit > kLong) {
        warn("still runs after 10 s", command);
        ended = ends_in_time(child, streams, deadline);
    }
    if (ended) {
        if (output)
            turn->share(output->text());
        return reap(child);
    }
    warn("ended, its time is over", command);
    end_group(child, std::move(turn));
    return SIGTERM;
}

} // namespace

int shell_run(const std::string &command, milliseconds limit, const std::string &key)
{
    return run(command, limit, key, nullptr).value_or(kNotRun);
}

int shell_run(const std::string &command, milliseconds limit)
{
    return shell_run(command, limit, command);
}

std::optional<std::string> shell_capture(const std::string &command, std::size_t size, milliseconds limit)
{
    ShellOutput output(size);
    if (!run(command, limit, command, &output))
        return std::nullopt;
    return output.text();
}

ShellLimits::ShellLimits(milliseconds each, Deadline until)
    : outer_each_(limit_each), outer_until_(limit_until)
{
    limit_each = std::min(limit_each, each);
    limit_until = std::min(limit_until, until);
}

ShellLimits::~ShellLimits()
{
    limit_each = outer_each_;
    limit_until = outer_until_;
}

ShellErrors::ShellErrors() : outer_(shell_errors)
{
    shell_errors = this;
}

ShellErrors::~ShellErrors()
{
    shell_errors = outer_;
}

void ShellErrors::append(std::string_view text)
{
    text_.append(text.substr(0, kMostBytes - text_.size()));
}

bool shell_errors_are_kept()
{
    return shell_errors != nullptr;
}

std::string shell_with_errors(const std::string &command)
{
    constexpr std::string_view kNoErrors = " 2>&1";
    return command.substr(0, command.size() - (command.ends_with(kNoErrors) ? kNoErrors.size() : 0));
}

std::optional<std::chrono::seconds> shell_time_of(const std::optional<std::string> &attribute)
{
    const int seconds = c_int(attribute.value_or(""));
    return seconds > 0 ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
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

#pragma once

#include "platform/socket.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Shell commands: "/bin/sh -c" in a process group of its own, with default signal handling, nothing to read
// and no descriptor beyond 0, 1 and 2. The command lock is let go while they run.
//
// Nothing waits for ever: a command that is over its limit is ended with its whole group, SIGTERM first and
// SIGKILL a second later. What a command leaves behind when its shell ends is neither ended nor waited for.
// Of one command text (or one key) only one runs at a time; the next one waits its turn, at most as long as
// its own limit; one whose output nobody wants has some seconds more, in which one before it with the same
// limit is ended. Several who want the output of the same command share what one of them gets, when it was
// begun after they came. Whatever is given up is logged as a warning.

inline constexpr std::chrono::seconds kShellReadLimit{10};
inline constexpr std::chrono::seconds kShellApplyLimit{120};

/// Runs the command and waits for it. Returns the raw wait status (waitpid(2)); SIGTERM for a command that
/// was over its limit, 1 for one that could not be started or did not get its turn. `key`: what must not run
/// twice at once, when that is not the command's text.
int shell_run(const std::string &command, std::chrono::milliseconds limit, const std::string &key);
int shell_run(const std::string &command, std::chrono::milliseconds limit = kShellApplyLimit);

/// Runs the command and returns what it prints on stdout up to its end or its limit, at most `size` bytes
/// (the rest is read and dropped); nothing when it could not be started or did not get its turn.
std::optional<std::string> shell_capture(const std::string &command, std::size_t size,
                                         std::chrono::milliseconds limit = kShellReadLimit);

/// While it lives, the shell commands of this thread get at most `each`, and none runs on after `until`. An
/// outer one keeps its hold.
class ShellLimits {
  public:
    explicit ShellLimits(std::chrono::milliseconds each, Deadline until = Deadline::max());
    ~ShellLimits();
    ShellLimits(const ShellLimits &) = delete;
    ShellLimits &operator=(const ShellLimits &) = delete;

  private:
    std::chrono::milliseconds outer_each_;
    Deadline outer_until_;
};

/// While it lives, what the shell commands of this thread print on stderr is read, and the first of it kept.
/// What a command leaves behind can go on printing there; nobody sees that any more. An inner one takes over.
class ShellErrors {
  public:
    static constexpr std::size_t kMostBytes = 1024;

    ShellErrors();
    ~ShellErrors();
    ShellErrors(const ShellErrors &) = delete;
    ShellErrors &operator=(const ShellErrors &) = delete;
    const std::string &text() const { return text_; }
    void append(std::string_view text); ///< for the commands

  private:
    ShellErrors *outer_;
    std::string text_;
};
bool shell_errors_are_kept(); ///< of this thread

/// The command without the " 2>&1" at its end, if that is there, for who keeps them.
std::string shell_with_errors(const std::string &command);

/// The attribute "timeout" as a limit: whole seconds, at least one. Nothing when it says nothing.
std::optional<std::chrono::seconds> shell_time_of(const std::optional<std::string> &attribute);

/// `word` as one word of a shell command, whatever it holds.
std::string shell_quote(std::string_view word);

} // namespace qvcd

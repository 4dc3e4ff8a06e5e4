#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Shell commands: "/bin/sh -c", with default signal handling and no descriptor beyond 0, 1 and 2. The command
// lock is let go while they run.

/// Runs the command and waits for it. Returns the raw wait status (waitpid(2)); 1 when it cannot be started.
int shell_run(const std::string &command);

/// Runs the command and returns what it prints on stdout, at most `limit` bytes (the rest is read and
/// dropped); nothing when it cannot be started.
std::optional<std::string> shell_capture(const std::string &command, std::size_t limit);

/// `word` as one word of a shell command, whatever it holds.
std::string shell_quote(std::string_view word);

} // namespace qvcd

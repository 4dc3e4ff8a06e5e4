#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace qvcd::client {

// Files of the user's that nobody else can read or write. Where one is not so, it is left alone.

/// "$XDG_RUNTIME_DIR/qvc": what does not outlive the user's last log-out. Empty without that variable.
std::string runtime_folder();

/// "$XDG_STATE_HOME/qvc" or "$HOME/.local/state/qvc". Empty without either variable.
std::string state_folder();

/// Makes the folder, and those above it, with mode 0700. False when it cannot, or when there is something of
/// this name that is no folder, not the user's, or open to others.
bool make_private_folder(const std::string &folder);

/// The text of a file that was changed within `age` (nothing: ever); nothing when there is none that is ours
/// alone, or it is over 1 MiB.
std::optional<std::string> read_private_file(const std::string &file,
                                             std::optional<std::chrono::seconds> age = std::nullopt);

/// Puts a new file with mode 0600 in its place; errno says why it could not.
bool replace_private_file(const std::string &file, const std::string &text);

/// write(2) until all is written.
bool write_all(int fd, const std::string &text);

} // namespace qvcd::client

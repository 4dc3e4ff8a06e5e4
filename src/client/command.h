#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd::client {

using Words = std::vector<std::string>; // a command and its arguments

/// Commands that the client knows by itself; all others are the daemon's.
enum class LocalCommand { none, help, login, logout, watch, completion, tree, find, edit, version };
LocalCommand local_command(std::string_view name);

/// Commands of the daemon's that plan, make, tell and undo changes: they answer in JSON too, and what they
/// say is made for a terminal.
bool is_change_command(std::string_view name);

/// Commands of the daemon's that may speak of a file of this machine (client/transfer.h).
bool is_transfer_command(const Words &words);

/// `words` as they ask for an answer in JSON, of commands that have one of their own (is_change_command()).
Words in_json(Words words);

/// True for a name with "*", "?" or "[" in it; of NAME=VALUE only the name counts.
bool has_glob(std::string_view argument);

/// wire_line(), with a warning on stderr when the daemon would pass over some of the arguments.
std::string command_line(const Words &words);

/// The exit status that stands for a command's result code: 0 stays 0, and no other becomes 0.
int exit_status(int result);

} // namespace qvcd::client

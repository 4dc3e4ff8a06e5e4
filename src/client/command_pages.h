#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvcd::client {

/// docs/commands/commands.txt: what each command takes, who may run it, what it changes, an example.
extern const char kCommandPages[];

/// The lines that `qvc help NAME` shows below the daemon's own page; none for what is no command.
std::vector<std::string> command_page(std::string_view command);

/// "rollback [-n] NUMBER": how the command is used; empty for what is no command.
std::string command_synopsis(std::string_view command);

} // namespace qvcd::client

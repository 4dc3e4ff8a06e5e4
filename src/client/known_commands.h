#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/command.h"

namespace qvcd::client {

/// A command of the daemon's or the client's that this client was built with.
struct KnownCommand {
    std::string_view name;
    std::string_view subcommands = ""; ///< between blanks; empty: it has none
};

std::span<const KnownCommand> known_commands();

/// The row of the command that `words` (at least one) call; null when this client was built without it.
const KnownCommand *find_command(const Words &words);

/// The sub-command that they call, "user.list" and "user list" alike; empty when there is none, and for
/// commands that have none.
std::string subcommand_of(const KnownCommand &command, const Words &words);

/// True for commands that do nothing, and say nothing, for who is no administrator.
bool is_for_administrators(const Words &words);

/// True when the client knows the command and its sub-command, so that nobody need be asked whether they are
/// right.
bool is_known_command(const Words &words);

} // namespace qvcd::client

#pragma once

#include <string>
#include <vector>

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

// Commands that the client knows by itself, and the way to all others.

/// The lines of the wire that ask for `help ...`: about a command and about a setting of a name. Throws
/// UsageError for what the wire cannot say.
std::vector<std::string> help_lines(const Words &words);

/// True for commands that work without the daemon's command connection (watch, completion).
bool is_client_only(const std::string &command);

/// Runs one command, prints its reply and returns the exit code. Throws UsageError and WireError.
int run_command(const Options &options, const Words &words);

/// Sends one command and prints its reply.
int run_on_daemon(const Options &options, const Words &words);

/// run_on_daemon() for a command of changes: on a terminal the reply is painted, and a change that awaits
/// confirmation is asked about.
int run_change(const Options &options, const Words &words);

int run_tree(const Options &options, const Words &words);
int run_find(const Options &options, const Words &words);
int run_edit(const Options &options, const Words &words);
int run_version(const Options &options, const Words &words);
int run_login(const Options &options, const Words &words);
int run_logout(const Options &options, const Words &words);
int run_watch(const Options &options, const Words &words);
int run_completion(const Options &options, const Words &words);

/// The text line of an event that came as JSON: "event payload", control characters as %XX. Throws
/// std::runtime_error when it is no event.
std::string event_text(const std::string &json);

} // namespace qvcd::client

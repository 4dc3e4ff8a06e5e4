#pragma once

#include "base/args.h"

#include <limits>
#include <optional>
#include <span>

namespace qvcd {

struct SubCommand {
    const char *name;
    CommandHandler handler;
    const char *description;
    bool listed = true; ///< false: neither the list of the sub-commands nor help.cmd shows it
};

/// What the system knows of one command. The texts are what "help.cmd" prints; null where there is none.
struct CommandRecord {
    const char *name;
    int (*init)() = nullptr; ///< when the command map is built
    int (*exit)() = nullptr; ///< when it is destroyed
    CommandHandler handler;
    const char *summary;
    const char *synopsis = nullptr;
    const char *return_values = nullptr;
    const char *errors = nullptr;
    const char *notes = nullptr;
    const char *description = nullptr;
    std::span<const SubCommand> sub_commands = {};
    /// Index of the first argument (the sub-command counts as one) that the log does not show, and none
    /// behind it: where passwords and session numbers may stand.
    std::size_t secret_from = std::numeric_limits<std::size_t>::max();
    /// Whoever can connect may run it; all others are refused to strangers by the dispatcher.
    bool open_to_strangers = false;
    /// The arguments are "name=value": what has no "=" may be a value.
    bool assigns = false;
    /// What of its changes goes into the history: of values, those that last, or all that it sets.
    std::optional<ChangeNotes::Level> recorded = std::nullopt;
};

/// What becomes of a sub-command's result.
enum class SubResult { zero, hand_on };

/// True for callers with a level-1 bit, and for strangers: the dispatcher lets those reach nothing but what
/// is open to them.
bool is_for_caller(const Request &request);

/// The common way of commands with sub-commands: nothing happens unless is_for_caller(); no sub-command or
/// "help" prints the list; an unknown word runs the first row.
int run_subcommand(const CommandRecord &record, Request &request, Args &argv, std::FILE *out, SubResult keep);

/// "<name>: This menu" and one line a sub-command.
void subcmd_help(const CommandRecord &record, std::FILE *out);

} // namespace qvcd

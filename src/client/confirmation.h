#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "client/change_painter.h"
#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

// A change that the daemon undoes unless it is confirmed in time, and the person on the terminal who decides.

/// The SECONDS of "commit -c SECONDS" and "rollback ... -c SECONDS"; nothing in all other commands.
std::optional<std::chrono::seconds> confirmation_time(const Words &words);

/// What the reply lines of a commit, a rollback or "commit -s" say of a change that awaits confirmation.
struct Awaited {
    std::optional<std::chrono::seconds> left; ///< "Commit.seconds=NUMBER"; nothing: none awaits it
    std::string entry;                        ///< "Commit=NUMBER", "Rollback=NUMBER"; empty: it has none

    void take(std::string_view line);
};

/// Asks whether the change is to be kept, counting down, and does what is said, to this change and no other.
/// Returns the exit status: 0 only for a change that is kept.
int ask_to_keep(const Options &options, ChangePainter &painter, const Awaited &awaited);

/// After a connection that broke before it said how the command ended, as one that changes the network does:
/// looks for up to `time` whether a change awaits confirmation, and asks to keep it. Returns the exit status.
int ask_after_loss(const Options &options, ChangePainter &painter, std::chrono::seconds time);

} // namespace qvcd::client

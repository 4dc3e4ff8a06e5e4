#pragma once

#include "base/turn.h"
#include "change/report.h"
#include "change/undo_record.h"
#include "platform/socket.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace qvcd {

// The one commit that is done and not settled: it waits to be confirmed, or to be undone. All under the
// command lock.

/// One commits, or settles a commit, at a time. Null: it was not one's turn within `patience`. Lets go of the
/// command lock.
using CommitTurn = std::shared_ptr<Turn>;
inline constexpr std::chrono::minutes kCommitPatience{10};
CommitTurn commit_turn(std::chrono::seconds patience);

struct Standing {
    enum class State {
        awaiting,  ///< its confirmation, until it is due
        settling,  ///< somebody confirms or undoes it
        undecided, ///< it must be undone, which did not work; it is tried again when it is due
    };

    UndoRecord record = {};
    std::int64_t number = 0; ///< its entry; 0: it has none
    State state = State::awaiting;
    Deadline due = {};
    std::string why = "not confirmed in time";            ///< it is undone
    std::vector<ValueChange> undone = {};                 ///< what was put back already
    std::optional<std::int64_t> undone_by = std::nullopt; ///< the entry that says so: only its record is left
    CommitTurn turn = {};                                 ///< of whoever undoes it
    bool is_unread = false;                               ///< its record could not be read yet
};

/// Null: there is none. Good as long as the command lock is held.
Standing *standing_commit();

/// From now on there is this one, which is undone when it is due.
void stand(Standing standing);

/// It is due then, and not before.
void stand_until(Deadline due);

/// It is settled.
void stand_no_more();

/// Undoes it: files, settings, actions, and in the history. What goes wrong is among the report's errors;
/// what is not undone then is tried again every few seconds. With delays kept some actions may be left for
/// later. Its state is `settling`, and the turn is its own. Lets go of the command lock.
void undo_standing(Request &request, Report &report, Delay delay);

/// The same for the daemon itself. Nobody is cut off who waits for a reply, so that no action has to run
/// later. Returns the problem with the history.
std::string undo_now(CommitTurn turn);

inline constexpr std::chrono::seconds kTryAgain{5}; ///< what could not be undone

/// From now on there is this commit of which nothing is left to undo but these actions, which run as soon as
/// the client has its reply, or at the next start. Lets go of the command lock.
void stand_for_actions(Standing undone, std::vector<Actions::Action> actions);

/// Ends the thread that watches the time, when no command can run any more. False: it is left behind, in the
/// middle of an undoing.
bool stop_standing();

} // namespace qvcd

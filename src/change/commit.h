#pragma once

#include "base/args.h"
#include "change/history_entry.h"
#include "change/report.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qvcd {

// A commit sets, saves and applies values as one: it happens whole or not at all, also when the daemon or the
// appliance ends in the middle (change/undo_record.h). One runs at a time (change/unconfirmed.h). One that is
// to be confirmed is undone by itself when that does not happen in time, and at the daemon's next start;
// until then no other may begin.

struct CommitOrder {
    Args assignments = {}; ///< "name=value", escaped; none: what waits to be saved or applied
    Whose whose = Whose::own;
    std::optional<std::chrono::seconds> confirm = std::nullopt; ///< undone unless it is confirmed within it
    std::string text = {};                                      ///< for the history
    bool wait = true;                                           ///< for another commit; false: refused
    const char *command = "commit";
    Check check = Check::full; ///< of the assignments
};

/// Carries it out. What is found in `report` before stays there. Returns 0; 1 when nothing has changed for an
/// error. `tell` is called with the report before actions run that may cut the caller off, and what is told
/// then may be taken out of it. Lets go of the command lock.
int commit(Request &request, const CommitOrder &order, Report &report,
           const std::function<void(Report &)> &tell);

/// A commit that waits to be confirmed.
struct Unconfirmed {
    HistoryEntry entry;
    std::chrono::seconds left;
};

/// Under the command lock.
std::optional<Unconfirmed> unconfirmed_commit();

inline constexpr char kNothingUnconfirmed[] = "##Nothing awaits confirmation#";

/// Ends the wait of the commit, or gives it `more` time, for a caller who may write what it wrote. `number`:
/// only if it is this one; 0: whichever it is. Lets go of the command lock. Returns 0; else the report has
/// the error.
int confirm_commit(const Request &request, std::int64_t number, std::optional<std::chrono::seconds> more,
                   Report &report);

/// Undoes the commit now, likewise.
int abort_commit(Request &request, std::int64_t number, Report &report);

/// At the daemon's start, when the settings are read: puts back what an end of the daemon cut off. Lets go of
/// the command lock.
void recover_commit();

/// When commands are served, which actions may need: has the rest of it done, on a thread of its own.
void start_commits();

/// At the daemon's end, when the command lock is closed: waits for nothing. What is not confirmed is undone
/// at the next start. False: a thread is left behind.
bool stop_commits();

} // namespace qvcd

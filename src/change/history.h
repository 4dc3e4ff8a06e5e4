#pragma once

#include "change/history_entry.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// The history of changes: who changed what, when, and how it ended. It stands in an SQLite database,
// kHistoryFile, in which other programs may read at any time. The newest kMaxHistoryEntries are kept, and no
// more than kMaxHistoryBytes. No secret is in it.
//
// A change never fails for its history. What keeps it from being written is in `problem`, for the reply, and
// in the log. A damaged file is put aside, as kDamagedHistoryFile, and a new one is begun, whose numbers go
// on where this process knows them.
//
// The functions let go of the command lock while they wait for the disk; they may be called by several
// threads.

inline constexpr char kHistoryFile[] = "/var/lib/qv/history.db"; // of the appliance
inline constexpr char kDamagedHistoryFile[] = "/var/lib/qv/history.db.damaged";

struct HistoryResult {
    std::int64_t number = 0; ///< 0: there is no entry
    std::string problem;     ///< empty: none
};

/// Adds an entry. Where there is one with its key, that one ends as this one says instead. After a file was
/// put aside the entry is in the new one, and `problem` says so.
HistoryResult history_add(const HistoryEntry &entry);

inline constexpr char kAwaitsConfirmation[] = "awaits confirmation";
inline constexpr char kConfirmed[] = "confirmed";

/// Says how an entry ended; when that cannot be written, it is as soon as it can. Returns the problem.
std::string history_end(std::int64_t number, std::string_view end);

/// No commit awaits its confirmation: entries that say so are of commits whose confirmation could not be
/// written before an end of the daemon.
void history_none_awaits();

/// Visits entries from the newest to the oldest, while `visit` gives true. With names only those that changed
/// one of these APIs, or one below one of these groups. Returns the problem. A few entries at a time are in
/// memory. `visit` has the command lock when the caller has it, and may call the functions here.
std::string history_visit(const std::vector<std::string> &names,
                          const std::function<bool(const HistoryEntry &)> &visit);

/// Closes the database at the daemon's end, and forgets what is known of it. Does not wait for a thread that
/// still works in it: what it wrote is on the disk, and what it did not finish is undone at the next start.
void history_close();

} // namespace qvcd

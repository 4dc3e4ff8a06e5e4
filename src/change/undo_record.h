#pragma once

#include "change/actions.h"
#include "change/history_entry.h"
#include "change/proposal.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

inline constexpr char kUndoFile[] = "/var/lib/qv/commit.undo"; // of the appliance

/// How to undo one commit. It is on the disk, as kUndoFile, from before the first file changes until the
/// commit is done and, where that was asked for, confirmed: a start that finds it undoes the commit. It holds
/// secrets, mode 0600.
struct UndoRecord {
    struct Value {
        std::string api;
        std::string before;
        std::string after;
        bool saves = false;
        bool applies = false;
        bool secret = false;
        bool by_value = false; ///< only an action wrote it: `files` do not have its file
        std::optional<std::string> loaded = std::nullopt; ///< what an action gave it, behind `after`

        /// It is the commit's own.
        bool has(std::string_view value) const { return value == after || value == loaded; }
    };
    struct File {
        std::string file;                  ///< of the appliance
        std::optional<std::string> before; ///< none: there was no such file
        std::uint64_t after = 0;           ///< text_hash() of what it got
    };

    HistoryEntry entry;        ///< of the commit, without values and actions
    std::vector<Value> values; ///< none: all is undone but for actions
    std::vector<File> files;
    std::vector<Actions::Action> actions; ///< each with the one API that it runs for
    std::vector<Actions::Action> further; ///< that those ran, likewise
    int starts = 0;                       ///< of the daemon that undid it, and did not end
};

/// Writes the record, in place of the one that is there, to stay. Lets go of the command lock.
FileResult write_undo_record(const UndoRecord &record);

/// Removes it, to stay, if it is there. Lets go of the command lock.
FileResult remove_undo_record();

struct UndoRead {
    int error = 0; ///< the errno of what keeps it from being read; it may be readable later
    std::optional<UndoRecord> record = std::nullopt;
};

/// The record, if it is there. A damaged one is put aside, with a log line. Lets go of the command lock.
UndoRead read_undo_record();

} // namespace qvcd

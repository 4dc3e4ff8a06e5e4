#pragma once

#include "base/change_notes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qvcd {

/// One change of the settings, or of the users, as the history tells it.
struct HistoryEntry {
    std::int64_t number = 0; ///< from 1 on, given by the store
    std::int64_t time = 0;   ///< seconds since 1970
    std::string key = {};    ///< of a commit: which one it is, unlike that of any other; else empty
    std::string user = {};
    std::string source = {}; ///< Caller::source: where he came from
    std::string client = {}; ///< the word with which the client introduced itself
    std::string command = {};
    std::string text = {}; ///< what the user said about it, or what the command was given
    std::string end = {};  ///< how it ended: "done", "awaits confirmation", "confirmed", "undone: ..."
    std::vector<ValueChange> values = {};
    std::vector<ActionRun> actions = {};
    std::size_t more_values = 0; ///< that were not kept, since they were too many
};

} // namespace qvcd

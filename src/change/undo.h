#pragma once

#include "base/request.h"
#include "change/undo_record.h"

#include <string>
#include <vector>

namespace qvcd {

struct PutBack {
    std::vector<std::string> problems; ///< files and APIs that are worth another try; none: the files are old
    std::vector<std::string> lost;     ///< APIs whose device or writer does not take the old value
};

/// Puts the files of a commit back: exactly, where nobody wrote to them since, else the values of its APIs
/// that still have what the commit wrote. Devices get the old values. May be repeated. Lets go of the command
/// lock.
PutBack put_files_back(const UndoRecord &record);

/// Gives the settings the old values again, with the flags of saved and applied ones. What somebody set since
/// stays his change, on top of them. Returns what it changed.
std::vector<ValueChange> put_values_back(const UndoRecord &record);

/// The same for a commit that failed: settings and flags are as they were when it was proposed.
void put_proposal_back(const std::vector<Proposed> &values, const UndoRecord &record);

/// Actions of a commit that ran again, with the old values.
struct RunAgain {
    std::vector<ActionRun> runs;
    std::vector<Actions::Action> left; ///< told among the runs, and still to be run
};

/// Runs its first `count` actions again, and those that they had run, but for those that set settings: what
/// they set came back. With delays kept those that run later are left: their delay is for a
/// client, and this must not be forgotten. Lets go of the command lock.
RunAgain run_actions_again(Request &request, const UndoRecord &record, std::size_t count, Delay delay);

} // namespace qvcd

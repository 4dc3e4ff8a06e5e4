#pragma once

#include "base/change_notes.h"

#include <ctime>
#include <deque>
#include <string>
#include <vector>

namespace qvcd {

/// An action that failed.
struct Failure {
    std::time_t time = 0;
    std::vector<std::string> apis; ///< some of those that asked for it, the first one at least
    ActionRun run;
};

/// Logs it with the first lines of `errors`, what it said on stderr, and remembers it; of many the oldest are
/// forgotten. Returns it with those lines. Used under the command lock.
ActionRun note_failure(const std::vector<std::string> &apis, const std::string &action, int status,
                       const std::string &errors);

/// "exit status 3", "ended by signal 15", "failed": what to say of a status that is not 0.
std::string status_text(int status);

/// What is remembered, the oldest first. Used under the command lock.
const std::deque<Failure> &failures();

} // namespace qvcd

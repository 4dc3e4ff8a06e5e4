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

/// Remembers it; of many the oldest are forgotten. Used under the command lock.
void failure_note(Failure failure);

/// What is remembered, the oldest first. Used under the command lock.
const std::deque<Failure> &failures();

} // namespace qvcd

#pragma once

#include "change/report.h"

namespace qvcd {

/// What a proposal would do: its values, the files that change and how, the actions that would run. Files are
/// read, with the command lock let go; nothing is written and nothing runs. Values that cannot be written are
/// errors of the report.
///
/// In the files' texts the values of secrets, and of what the caller may not read, are hidden; lines of
/// anything but settings are shown to administrators only, as are those around a change.
Report plan(const Request &request, const Proposal &proposal);

} // namespace qvcd

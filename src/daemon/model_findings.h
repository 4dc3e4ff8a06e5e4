#pragma once

#include "platform/sysroot.h"

#include <vector>

namespace qvcd {

/// Looks for mistakes in the metadata files (check/check.h) in a thread of its own, which gives way to all
/// others and never has the command lock: the first findings go to the log, errors (priority 3) and warnings
/// (6), errors also to what is stderr now when `on_stderr`. Call it before qv_daemon_ready().
void model_findings_start(const std::vector<FileName> &files, bool on_stderr);

/// Ends the thread. Fine when there is none.
void model_findings_stop();

} // namespace qvcd

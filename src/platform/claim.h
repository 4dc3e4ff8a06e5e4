#pragma once

#include <chrono>
#include <string>

namespace qvcd {

// Of the daemons on one sysroot only one works: it holds the lock file "/var/run/qv/qvcd.lock" for life. The
// file says how far that daemon is: "starting", "running" or "stopping".

/// Claims the sysroot for this process, which is starting. One that starts or stops is waited for, at most
/// for `patience`. Returns an empty text, or why the root is not to be had: another daemon has it, or the
/// file cannot be made. Then nothing was touched.
std::string qv_claim_root(std::chrono::milliseconds patience = std::chrono::seconds{10});

void qv_claim_running();  ///< this daemon serves
void qv_claim_stopping(); ///< this daemon ends

/// Lets go of the claim and removes the file. The end of the process does so too, but leaves the file.
void qv_release_root();

} // namespace qvcd

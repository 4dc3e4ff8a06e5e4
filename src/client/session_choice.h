#pragma once

#include <optional>
#include <string>

#include "client/options.h"

namespace qvcd::client {

// Who qvc is without -s and QVC_SESSION: the session that `login --keep` left for this daemon, else session
// 0. It lies in a file of the user's alone, one for each endpoint, so that no other daemon is ever told its
// number.

void choose_session(Options &options);

/// Throws UsageError when the file cannot be written.
void keep_session(const Endpoint &endpoint, int session);

/// Removes the file when it names this session.
void forget_session(const Endpoint &endpoint, int session);

} // namespace qvcd::client

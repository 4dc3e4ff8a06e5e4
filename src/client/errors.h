#pragma once

#include "qvclient/errors.h"

namespace qvcd::client {

// Exit codes of qvc's own; a command's result is handed on as it is.
inline constexpr int kExitUsage = 2;
inline constexpr int kExitNoDaemon = 124; // as timeout(1)

} // namespace qvcd::client

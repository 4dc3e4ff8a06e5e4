#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function of the bonding unit. `attr` is "mode", "state" ("up", "down", "unknown"), "status"
/// ("running", "paused", "stopped") or "version" (asks the unit's own daemon over TCP, "n/a" without an
/// answer; lets go of the command lock). Empty for another
/// `attr`. `file` is not used.
std::optional<std::string> bond_info_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

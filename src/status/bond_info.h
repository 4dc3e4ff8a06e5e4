#pragma once

#include <string>

namespace qvcd {

/// Read function of the bonding unit. `attr` is "mode", "state" ("up", "down", "unknown"), "status"
/// ("running", "paused", "stopped") or "version" (asks the unit's own daemon over TCP, "n/a" without an
/// answer; lets go of the command lock). True with `out` left alone for another `attr`. `file` and `cached`
/// are not used.
bool bond_info_rfunc(const char *file, const char *attr, std::string &out, bool cached);

} // namespace qvcd

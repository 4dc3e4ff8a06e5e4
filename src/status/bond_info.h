#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function of the bonding unit. `attr` is "mode", "state" ("up", "down", "unknown"), "status"
/// ("running", "paused", "stopped") or "version" (asks the unit's own daemon over TCP once a request, "n/a"
/// without an answer; lets go of the command lock); empty for another one. `file` is not used.
std::optional<std::string> bond_info_rfunc(Request &request, const char *file, const char *attr);

/// What the unit says of itself (platform/bonding.h), read once a request.
struct BondUnit {
    int state = 0;
    int status = 0;
    bool up() const { return state == 1; }
    bool down() const { return state == 2; }
};
const BondUnit &bond_unit(Request &request);

} // namespace qvcd

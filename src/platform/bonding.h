#pragma once

namespace qvcd {

/// State of the bonding unit, from "/var/run/bond/state" below the sysroot: 1 = "up", 2 = "down", 0 =
/// unknown.
int bonding_state();

/// From "/var/run/bond/status": 1 = "running", 2 = "paused", 0 = stopped.
int bonding_status();

} // namespace qvcd

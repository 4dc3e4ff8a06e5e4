#pragma once

namespace qvcd {

// The daemon's registration with the system watchdog (platform/watchdog.h).
int watchdog_start();
int watchdog_stop();

} // namespace qvcd

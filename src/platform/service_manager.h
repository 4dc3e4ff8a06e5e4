#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace qvcd {

// The service protocol of systemd, sd_notify(3) and sd_watchdog_enabled(3), without their library, which
// brings six others and takes as long to load as the daemon's own start.

/// True when the environment names a service manager (NOTIFY_SOCKET).
bool has_service_manager();

/// Sends `state` ("READY=1") to the service manager, if there is one; logs when that fails.
void tell_service_manager(std::string_view state);

/// How long the service manager waits for a "WATCHDOG=1" of this process; nothing when it does not.
std::optional<std::chrono::microseconds> watchdog_interval();

} // namespace qvcd

#pragma once

namespace qvcd {

/// The health callback: 0 means healthy.
using WatchdogCheck = int (*)(void *context);

struct WatchdogHandle; // one registration

/// Registers with the service manager over systemd's service protocol (sd_notify(3)): says READY=1, then, when
/// the manager asks for it (WATCHDOG_USEC), WATCHDOG=1 at half its interval for as long as `check` says healthy.
/// Without an interval from the manager, `interval_seconds` is how often `check` is looked at. Without a
/// service manager nothing is sent; that is logged once. Never null.
WatchdogHandle *qvwatchdog_start(const char *name, int interval_seconds, WatchdogCheck check, void *context);

/// Says STOPPING=1, ends the ticking and frees the handle; null is allowed.
void qvwatchdog_stop(WatchdogHandle *handle);

} // namespace qvcd

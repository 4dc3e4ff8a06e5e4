#pragma once

namespace qvcd {

/// The health callback: 0 means healthy.
using WatchdogCheck = int (*)(void *context);

struct WatchdogHandle; // one registration

/// Registers with the service manager over systemd's service protocol (sd_notify(3)): when the manager asks
/// for it (WATCHDOG_USEC), says WATCHDOG=1 at half its interval for as long as `check` says healthy. Without
/// an interval from the manager, `interval_seconds` is how often `check` is looked at. Changes of health are
/// logged. Without a service manager nothing is sent; that is logged. READY=1 is qv_daemon_ready()'s, once
/// the daemon serves. `check` runs on a thread of the watchdog's own. Never null.
WatchdogHandle *qvwatchdog_start(const char *name, int interval_seconds, WatchdogCheck check, void *context);

/// Says STOPPING=1, ends the ticking and frees the handle; null is allowed.
void qvwatchdog_stop(WatchdogHandle *handle);

} // namespace qvcd

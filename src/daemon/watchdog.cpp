#include "daemon/watchdog.h"

#include "platform/log.h"
#include "platform/watchdog.h"

namespace qvcd {

namespace {

constexpr int kWatchdogInterval = 10; // seconds

WatchdogHandle *wd_handle = nullptr;

// Healthy as long as the process lives.
int watchdog_check(void *)
{
    return 0;
}

} // namespace

int watchdog_start()
{
    qv_log_print(kLogDebug, "Starting watchdog\n");
    wd_handle = qvwatchdog_start("qvcd", kWatchdogInterval, watchdog_check, nullptr);
    return 0;
}

int watchdog_stop()
{
    qv_log_print(kLogDebug, "Stopping watchdog\n");
    qvwatchdog_stop(wd_handle);
    wd_handle = nullptr;
    return 0;
}

} // namespace qvcd

#include "platform/watchdog.h"

#include "platform/log.h"
#include "platform/service_manager.h"
#include "platform/thread.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <system_error>

namespace qvcd {

struct WatchdogHandle {
    std::string name;
    WatchdogCheck check = nullptr;
    void *context = nullptr;
    std::chrono::microseconds interval{};
    bool ticks = false; // the service manager waits for WATCHDOG=1

    std::mutex mutex;
    std::condition_variable stopped;
    bool stop = false;
    std::thread thread; // last: reads everything above
};

namespace {

bool is_healthy(const WatchdogHandle &handle)
{
    return !handle.check || handle.check(handle.context) == 0;
}

// The check runs without the mutex: it may be slow, and stop must not wait for more than one of them.
void watch(WatchdogHandle &handle)
{
    bool healthy = true;
    std::unique_lock lock(handle.mutex);
    while (!handle.stop) {
        lock.unlock();
        const bool now_healthy = is_healthy(handle);
        if (now_healthy && handle.ticks)
            tell_service_manager("WATCHDOG=1");
        if (now_healthy != healthy)
            qv_log_print(now_healthy ? kLogNotice : kLogError, "watchdog: %s is %s\n", handle.name.c_str(),
                         now_healthy ? "healthy again" : "not healthy");
        healthy = now_healthy;
        lock.lock();
        handle.stopped.wait_for(lock, handle.interval, [&handle] { return handle.stop; });
    }
}

void choose_interval(WatchdogHandle &handle, int interval_seconds)
{
    const auto asked = watchdog_interval();
    handle.ticks = asked.has_value();
    handle.interval = asked ? std::max(*asked / 2, std::chrono::microseconds(1000))
                            : std::chrono::seconds(std::max(interval_seconds, 1));
}

} // namespace

WatchdogHandle *qvwatchdog_start(const char *name, int interval_seconds, WatchdogCheck check, void *context)
{
    auto *handle = new WatchdogHandle;
    handle->name = name ? name : "";
    handle->check = check;
    handle->context = context;
    choose_interval(*handle, interval_seconds);
    if (!has_service_manager())
        qv_log_print(kLogDebug, "watchdog: there is no service manager to tell\n");
    try {
        handle->thread = start_quiet_thread([handle] { watch(*handle); });
    } catch (const std::system_error &error) {
        qv_report_failure(std::string("cannot start the watchdog: ") + error.what());
    }
    return handle;
}

void qvwatchdog_stop(WatchdogHandle *handle)
{
    if (!handle)
        return;
    tell_service_manager("STOPPING=1");
    {
        const std::lock_guard lock(handle->mutex);
        handle->stop = true;
    }
    handle->stopped.notify_all();
    if (handle->thread.joinable())
        handle->thread.join();
    delete handle;
}

} // namespace qvcd

#include "platform/clock.h"

#include "platform/fd.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/rtc.h>
#include <optional>
#include <sys/ioctl.h>
#include <sys/time.h>

namespace qvcd {

namespace {

constexpr char kRtcDevice[] = "/dev/rtc0";
constexpr char kClockFile[] = "/var/run/qv/clock";

// mktime(3) moves a time that does not exist to one that does; then the fields no longer agree.
std::optional<std::time_t> to_seconds(const std::tm &local)
{
    std::tm moved = local;
    errno = 0;
    const std::time_t seconds = std::mktime(&moved);
    if (seconds == -1 && errno != 0)
        return std::nullopt;
    if (moved.tm_year != local.tm_year || moved.tm_mon != local.tm_mon || moved.tm_mday != local.tm_mday ||
        moved.tm_hour != local.tm_hour || moved.tm_min != local.tm_min || moved.tm_sec != local.tm_sec)
        return std::nullopt;
    return seconds;
}

int write_clock_file(const std::tm &local)
{
    char text[64];
    if (std::strftime(text, sizeof text, "%Y%m%dT%H:%M:%S\n", &local) == 0)
        return -1;
    const std::filesystem::path path = qv_sysroot_path(kClockFile);
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    std::ofstream file(path);
    file << text << std::flush;
    return file ? 0 : -1;
}

Fd open_rtc()
{
    return Fd(open(qv_sysroot_path(kRtcDevice).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

} // namespace

std::tm qv_time_get()
{
    tzset(); // localtime_r need not look at the time zone again
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

int qv_time_set_local(const std::tm &local)
{
    const auto seconds = to_seconds(local);
    if (!seconds)
        return -1;
    if (!qv_sysroot().empty())
        return write_clock_file(local);
    const timeval now{*seconds, 0};
    return settimeofday(&now, nullptr);
}

int qv_time_convert_to_utc(const std::tm &local, std::tm &utc)
{
    const auto seconds = to_seconds(local);
    return seconds && gmtime_r(&*seconds, &utc) ? 0 : -1;
}

bool qv_rtc_exists()
{
    return static_cast<bool>(open_rtc());
}

void qv_rtc_set(const std::tm &utc)
{
    if (!qv_sysroot().empty()) {
        qv_log_print(kLogDebug, "%s is not set under a sysroot\n", kRtcDevice);
        return;
    }
    rtc_time time{};
    time.tm_sec = utc.tm_sec;
    time.tm_min = utc.tm_min;
    time.tm_hour = utc.tm_hour;
    time.tm_mday = utc.tm_mday;
    time.tm_mon = utc.tm_mon;
    time.tm_year = utc.tm_year;
    const Fd rtc = open_rtc();
    if (!rtc || ioctl(rtc.get(), RTC_SET_TIME, &time) != 0)
        qv_log_print(kLogWarning, "%s: cannot set the hardware clock: %s\n", kRtcDevice,
                     std::strerror(errno));
}

} // namespace qvcd

#pragma once

#include <ctime>

namespace qvcd {

/// The current local time (localtime_r of now); a time zone that was changed meanwhile counts.
std::tm qv_time_get();

/// Sets the system clock from a broken-down local time; tm_isdst -1 lets the C library decide. Returns 0, or
/// -1 when the time does not exist (30 February, an hour that daylight saving skips) or the clock may not be
/// set. Under a sysroot the clock is not touched: the time is written to "/var/run/qv/clock" below it, as
/// "20240229T12:00:00" and a newline.
int qv_time_set_local(const std::tm &local);

/// The same moment in UTC. Returns 0, or -1 when the local time does not exist.
int qv_time_convert_to_utc(const std::tm &local, std::tm &utc);

/// True when the hardware clock "/dev/rtc0" below the sysroot can be opened.
bool qv_rtc_exists();

/// Sets the hardware clock (rtc(4), RTC_SET_TIME); how that went is only logged. Under a sysroot nothing is
/// set.
void qv_rtc_set(const std::tm &utc);

} // namespace qvcd

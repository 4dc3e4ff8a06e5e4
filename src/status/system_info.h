#pragma once

#include "base/request.h"

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

struct sysinfo; // sys/sysinfo.h

namespace qvcd {

// Read functions of load, memory, uptime, temperature, time and power. `file` is not used. One
// request reads the records of load, uptime and time once, so that its values belong together.

/// sysinfo(2): `attr` is "all", "avg1min", "avg5min", "avg15min" (load averages, "0.25"), "totalram", "used",
/// "freeram", "sharedram", "bufferram" (KiB) or "numberprocs".
std::optional<std::string> info_get_sysinfo(Request &request, const char *file, const char *attr);

/// sysinfo(2): `attr` is "all" ("0 days,  3:07"), "day", "hr", "min", or "seconds" since the start.
std::optional<std::string> info_get_uptime(Request &request, const char *file, const char *attr);

/// The first sensor of the first hardware monitor (hwmon, temp1_input, millidegrees Celsius): in Fahrenheit
/// when `attr` is null or begins with "f" or "F", else in Celsius; "0.0" without a sensor.
std::optional<std::string> info_get_temperature(Request &request, const char *file, const char *attr);

/// The local time: `attr` is "string" ("Feb 29, 2024, 12:00:00") or "timecode" ("20240229T12:00:00").
std::optional<std::string> info_get_currenttime(Request &request, const char *file, const char *attr);

/// "DC" or "BATT"; none when no source feeds the device.
std::optional<std::string> power_source_rfunc(Request &request, const char *file, const char *attr);

/// Capacity of the battery in percent; 0 without one.
std::optional<std::string> battery_level_rfunc(Request &request, const char *file, const char *attr);

// What the readers print, from records that a caller hands in; nothing for an unknown `attr`.

std::optional<std::string> sysinfo_text(const struct sysinfo &info, std::string_view attr);
std::optional<std::string> uptime_text(long seconds, std::string_view attr);
std::optional<std::string> time_text(const std::tm &time, std::string_view attr);

} // namespace qvcd

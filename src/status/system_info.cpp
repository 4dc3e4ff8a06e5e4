#include "status/system_info.h"

#include "base/lookup.h"
#include "platform/clock.h"
#include "platform/power.h"
#include "platform/small_file.h"
#include "status/print_text.h"

#include <cstdlib>
#include <sys/sysinfo.h>

namespace qvcd {

namespace {

using Sysinfo = struct sysinfo;

Sysinfo read_sysinfo()
{
    Sysinfo info{};
    sysinfo(&info);
    return info;
}

// A load average with 16 fraction bits; the fraction is truncated.
std::string load_text(unsigned long load)
{
    return print_text("%lu.%02lu", load >> 16, (load & 0xffffU) * 100 >> 16);
}

// The kernel's byte counts are taken as they stand; mem_unit is 1 on this board.
std::string kib_text(unsigned long bytes)
{
    return std::to_string(bytes >> 10);
}

struct SysinfoRow {
    std::string_view name;
    std::string (*print)(const Sysinfo &);
};

constexpr SysinfoRow kSysinfo[] = {
    {"all",
     [](const Sysinfo &s) {
         return load_text(s.loads[0]) + " " + load_text(s.loads[1]) + " " + load_text(s.loads[2]);
     }},
    {"avg1min", [](const Sysinfo &s) { return load_text(s.loads[0]); }},
    {"avg5min", [](const Sysinfo &s) { return load_text(s.loads[1]); }},
    {"avg15min", [](const Sysinfo &s) { return load_text(s.loads[2]); }},
    {"totalram", [](const Sysinfo &s) { return kib_text(s.totalram); }},
    {"used", [](const Sysinfo &s) { return kib_text(s.totalram - s.freeram); }},
    {"freeram", [](const Sysinfo &s) { return kib_text(s.freeram); }},
    {"sharedram", [](const Sysinfo &s) { return kib_text(s.sharedram); }},
    {"bufferram", [](const Sysinfo &s) { return kib_text(s.bufferram); }},
    {"numberprocs", [](const Sysinfo &s) { return std::to_string(s.procs); }},
};

} // namespace

std::optional<std::string> sysinfo_text(const Sysinfo &info, std::string_view attr)
{
    const SysinfoRow *row = find_row(kSysinfo, attr);
    return row ? std::optional(row->print(info)) : std::nullopt;
}

std::optional<std::string> uptime_text(long seconds, std::string_view attr)
{
    const long days = seconds / 86400;
    const long hours = seconds / 3600 % 24;
    const long minutes = seconds / 60 % 60;
    if (attr == "all")
        return print_text("%ld day%s, %2ld:%02ld", days, days == 1 ? "" : "s", hours, minutes);
    if (attr == "day")
        return std::to_string(days);
    if (attr == "hr")
        return print_text("%2ld", hours);
    if (attr == "min")
        return print_text("%02ld", minutes);
    if (attr == "seconds")
        return std::to_string(seconds);
    return std::nullopt;
}

std::optional<std::string> time_text(const std::tm &time, std::string_view attr)
{
    char text[64];
    if (attr == "string")
        return std::string(text, std::strftime(text, sizeof text, "%b %d, %Y, %H:%M:%S", &time));
    if (attr == "timecode")
        return std::string(text, std::strftime(text, sizeof text, "%Y%m%dT%H:%M:%S", &time));
    return std::nullopt;
}

std::optional<std::string> info_get_sysinfo(Request &request, const char *, const char *attr)
{
    return attr ? sysinfo_text(request.once<Sysinfo>(read_sysinfo), attr) : std::nullopt;
}

std::optional<std::string> info_get_uptime(Request &request, const char *, const char *attr)
{
    return attr ? uptime_text(request.once<Sysinfo>(read_sysinfo).uptime, attr) : std::nullopt;
}

std::optional<std::string> info_get_temperature(Request &, const char *, const char *attr)
{
    const auto sensor = read_small_file("/sys/class/hwmon/hwmon0/device/temp1_input", 128);
    if (!sensor)
        return "0.0";
    const double celsius = std::strtod(sensor->c_str(), nullptr) / 1000;
    const bool fahrenheit = !attr || *attr == 'f' || *attr == 'F';
    return print_text("%3.1f", fahrenheit ? celsius * 1.8 + 32 : celsius);
}

std::optional<std::string> info_get_currenttime(Request &request, const char *, const char *attr)
{
    return attr ? time_text(request.once<std::tm>(qv_time_get), attr) : std::nullopt;
}

std::optional<std::string> power_source_rfunc(Request &, const char *, const char *)
{
    const int source = power_read_source();
    return source == 4 ? std::optional("BATT") : source != 0 ? std::optional("DC") : std::nullopt;
}

std::optional<std::string> battery_level_rfunc(Request &, const char *, const char *)
{
    return std::to_string(power_read_battery_capacity());
}

} // namespace qvcd

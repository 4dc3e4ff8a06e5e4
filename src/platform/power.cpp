#include "platform/power.h"

#include "platform/small_file.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace qvcd {

namespace {

constexpr char kSupplies[] = "/sys/class/power_supply";

std::string attribute(const std::string &supply, const char *name)
{
    return read_first_line(std::string(kSupplies) + "/" + supply + "/" + name);
}

long number(const std::string &supply, const char *name)
{
    return std::strtol(attribute(supply, name).c_str(), nullptr, 10);
}

// A supply of something else that is attached (a mouse), or one that was taken out, feeds nothing here.
bool feeds_us(const std::string &supply)
{
    return attribute(supply, "scope") != "Device" && attribute(supply, "present") != "0";
}

// In the order of their names, so that "the first battery" is the same one at every read.
std::vector<std::string> supply_names()
{
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator at(qv_sysroot_path(kSupplies), error), end; !error && at != end;
         at.increment(error)) {
        if (std::string name = at->path().filename().string(); feeds_us(name))
            names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool is_battery(const std::string &supply)
{
    return attribute(supply, "type") == "Battery";
}

bool is_discharging(const std::string &battery)
{
    const std::string status = attribute(battery, "status");
    return status.empty() || status == "Discharging";
}

// What one supply says about the source: 1, 2, 4, or 0 when it does not feed the device.
int source_of(const std::string &supply)
{
    if (is_battery(supply))
        return is_discharging(supply) ? 4 : 0;
    if (number(supply, "online") == 0) // 2 means online at a fixed voltage
        return 0;
    const std::string type = attribute(supply, "type");
    if (type == "Mains")
        return 1;
    return type.starts_with("USB") ? 2 : 0; // "USB", "USB_DCP", "USB_PD", ...
}

} // namespace

int power_read_source()
{
    int best = 0;
    for (const std::string &supply : supply_names()) {
        const int source = source_of(supply);
        if (source != 0 && (best == 0 || source < best))
            best = source;
    }
    return best;
}

int power_read_battery_capacity()
{
    for (const std::string &supply : supply_names()) {
        if (is_battery(supply))
            return static_cast<int>(std::clamp(number(supply, "capacity"), 0L, 100L));
    }
    return 0;
}

} // namespace qvcd

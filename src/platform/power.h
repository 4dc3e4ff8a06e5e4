#pragma once

namespace qvcd {

// The power supplies that the kernel lists in "/sys/class/power_supply" (below the sysroot), one folder a
// supply with the attribute files type, scope, present, online, status and capacity
// (Documentation/ABI/testing/sysfs-class-power). One that supplies a device only (scope "Device"), or that is
// not present, does not count.

/// The power source in use: 1 = a mains supply is online, 2 = a USB supply is online, 4 = a battery is
/// discharging, 0 = none of these. Mains wins over USB over battery. A battery whose driver gives no status
/// counts as discharging, since nothing else is online by then.
int power_read_source();

/// Capacity of the first battery by name, 0 to 100 percent; 0 without a battery.
int power_read_battery_capacity();

} // namespace qvcd

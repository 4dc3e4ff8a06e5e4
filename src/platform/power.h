#pragma once

namespace qvcd {

/// The power source in use, from "/sys/class/power_supply" below the sysroot: 1 = a mains supply is online,
/// 2 = a USB supply is online, 4 = a battery is discharging, 0 = none of these. Mains wins over USB over battery.
int power_read_source();

/// Capacity of the first battery, in percent; 0 without a battery.
int power_read_battery_capacity();

} // namespace qvcd

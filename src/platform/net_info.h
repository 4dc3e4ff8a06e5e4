#pragma once

#include <string>

namespace qvcd {

/// The board's MAC address: "/sys/class/net/eth0/address" below the sysroot, in upper case. Empty when it
/// cannot be read.
std::string qv_info_get_mac_address();

} // namespace qvcd

#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// Read functions of the network's configuration. `file` is a path of the appliance.

/// `attr`, in any case, is "hostname" (the first word that the board's configuration tool prints; lets go of
/// the command lock), "IFCONFIG_OPTS" (the hardware address among the options of that key in `file`),
/// "CONFIG_NETWORK_IPADDR_DYNAMIC" (that key of `file`: "y" gives "dhcp", others "static") or "ethaddr" (the
/// board's MAC address).
std::optional<std::string> network_rfunc(Request &request, const char *file, const char *attr);

/// The dotted gateway of the first route to 0.0.0.0/0 in "/proc/net/route", "0.0.0.0" without one; a
/// malformed row ends the table. `file` and `attr` are not used. Empty when the table is unreadable or empty.
std::optional<std::string> gateway_rfunc(Request &request, const char *file, const char *attr);

/// The second words of all lines of `file` that begin with the word `attr`, run together; nothing when no
/// line does.
std::optional<std::string> resolv_rfunc(Request &request, const char *file, const char *attr);

/// The hardware address of "eth0" as twelve lower-case hexadecimal digits. One request sees one snapshot.
std::optional<std::string> discovery_id_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

#pragma once

#include "base/request.h"
#include "status/netlink.h"

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

/// Read function of one field of an interface. `attr` is "<interface> <field>", or the field of "eth0".
/// `file` is not used. One request sees one snapshot.
///
/// Fields of the running interface: "ipaddress", "broadcast", "submask", "mtu", "macaddress" ("Not Available"
/// without such an interface, "Error getting" when it has none). Fields of its configuration, read from the
/// file that belongs to its address mode: "gateway", "nameserver", "domain".
std::optional<std::string> ifconfig_rfunc(Request &request, const char *file, const char *attr);

/// One field of the running interface; nothing when there is none.
std::optional<std::string> interface_field(const InterfaceSnapshot &snapshot, std::string_view interface,
                                           std::string_view field);

/// "<interface> <field>" or "<field>", split at blanks.
struct InterfaceField {
    std::string interface;
    std::string field; ///< empty when the text names none
};
InterfaceField split_interface_field(std::string_view text, std::string_view default_interface);

} // namespace qvcd

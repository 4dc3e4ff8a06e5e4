#pragma once

#include "base/request.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// What the kernel says of its network interfaces (rtnetlink(7)). Asking it does not wait on the outside
// world. Netlink knows no sysroot.

struct NetLink {
    int index = 0;
    std::string name;
    unsigned operational_state = 0;      ///< RFC 2863; 6 is "up"
    unsigned flags = 0;                  ///< IFF_*
    unsigned mtu = 0;                    ///< bytes
    std::optional<std::string> mac = {}; ///< lower case
};

struct NetAddress {
    int link_index = 0;
    std::optional<std::string> local; ///< without the prefix length
    std::optional<std::string> broadcast;
    int prefix_length = 0;
};

struct InterfaceSnapshot {
    std::vector<NetLink> links;
    std::vector<NetAddress> addresses; ///< of all families, in the kernel's order

    const NetLink *link(std::string_view name) const;
    /// The first address of the interface.
    const NetAddress *address(std::string_view name) const;
};

/// The request's snapshot, taken when it first asks. Null when the kernel could not be asked.
const InterfaceSnapshot *interface_snapshot(Request &request);

} // namespace qvcd

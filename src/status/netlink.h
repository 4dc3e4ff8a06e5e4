#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// What the kernel says of its network interfaces (rtnetlink(7)), as snapshots of this process. Use them under
// the command lock; a pointer to a snapshot is good until the next call that asks for one, and at the latest
// until the lock is let go. Asking the kernel does not wait on the outside world. Netlink knows no sysroot.

struct NetLink {
    int index = 0;
    std::string name;
    unsigned operational_state = 0; ///< RFC 2863; 6 is "up"
    unsigned flags = 0;             ///< IFF_*
    unsigned mtu = 0;               ///< bytes
    std::string mac;                ///< lower case; empty when the link has no address
};

struct NetAddress {
    int link_index = 0;
    std::string local;     ///< without the prefix length; empty when there is none
    std::string broadcast; ///< empty when there is none
    int prefix_length = 0;
};

struct InterfaceSnapshot {
    std::vector<NetLink> links;
    std::vector<NetAddress> addresses; ///< of all families, in the kernel's order

    const NetLink *link(std::string_view name) const;
    /// The first address of the interface.
    const NetAddress *address(std::string_view name) const;
};

/// Links and addresses for the interface fields. Null when the kernel could not be asked.
const InterfaceSnapshot *interface_snapshot();

/// The links once more, for link states: they are refreshed at times of their own. `addresses` is empty.
const InterfaceSnapshot *linkstate_snapshot();

/// The next request for the snapshot asks the kernel again.
void expire_interface_snapshot();
void expire_linkstate_snapshot();

/// How many snapshots were taken since the process began, for tests.
std::size_t netlink_snapshots_built();

} // namespace qvcd

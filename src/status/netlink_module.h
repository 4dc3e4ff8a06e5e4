#pragma once

#include "platform/module.h"
#include "status/netlink.h"

#include <optional>

namespace qvcd {

/// What takes libnl.
struct NetlinkModule {
    static constexpr char kName[] = "netlink";

    /// Nothing when the kernel could not be asked.
    std::optional<InterfaceSnapshot> (*take_snapshot)();
};

} // namespace qvcd

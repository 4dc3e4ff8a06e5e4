#include "status/netlink.h"

#include "platform/log.h"
#include "status/netlink_module.h"

namespace qvcd {

namespace {

std::optional<InterfaceSnapshot> take_snapshot()
{
    std::string problem;
    try {
        if (auto snapshot = module<NetlinkModule>().take_snapshot())
            return snapshot;
    } catch (const ModuleError &error) {
        problem = std::string(": ") + error.what();
    }
    qv_log_print(kLogWarning, "cannot list the network interfaces%s\n", problem.c_str());
    return std::nullopt;
}

} // namespace

const NetLink *InterfaceSnapshot::link(std::string_view name) const
{
    for (const NetLink &link : links) {
        if (link.name == name)
            return &link;
    }
    return nullptr;
}

const NetAddress *InterfaceSnapshot::address(std::string_view name) const
{
    const NetLink *owner = link(name);
    for (const NetAddress &address : addresses) {
        if (owner && address.link_index == owner->index)
            return &address;
    }
    return nullptr;
}

const InterfaceSnapshot *interface_snapshot(Request &request)
{
    const auto &snapshot = request.once<std::optional<InterfaceSnapshot>>(take_snapshot);
    return snapshot ? &*snapshot : nullptr;
}

} // namespace qvcd

#include "status/link_state.h"

#include "base/file_text.h"
#include "platform/sysroot.h"
#include "status/netlink.h"
#include "status/wireless.h"

#include <algorithm>
#include <cstdlib>
#include <linux/if.h>

namespace qvcd {

namespace {

constexpr unsigned kOperationalUp = 6; // RFC 2863

// A modem that has not dialled has no link, only the file that its manager writes.
bool is_present_modem(const std::string &interface)
{
    if (!interface.starts_with("ppp"))
        return false;
    const long long number = std::strtoll(interface.c_str() + 3, nullptr, 10);
    return file_exists(qv_sysroot_path("/var/run/modem-" + std::to_string(number) + ".info"));
}

bool is_associated(const std::string &interface)
{
    unsigned char mac[6];
    read_access_point(interface, mac);
    return is_access_point(mac);
}

} // namespace

bool is_access_point(const unsigned char (&mac)[6])
{
    const bool same =
        std::all_of(std::begin(mac), std::end(mac), [&](unsigned char byte) { return byte == mac[0]; });
    return !same || (mac[0] != 0x00 && mac[0] != 0x44 && mac[0] != 0xff);
}

std::optional<std::string> linkstate_rfunc(Request &request, const char *, const char *attr)
{
    const InterfaceSnapshot *snapshot = interface_snapshot(request);
    if (!snapshot)
        return std::nullopt;
    const std::string interface = attr ? attr : "eth0";
    const NetLink *link = snapshot->link(interface);
    if (!link)
        return is_present_modem(interface) ? "present" : "unknown";
    const bool runs = link->operational_state == kOperationalUp || (link->flags & IFF_RUNNING) != 0;
    return runs && (!interface.starts_with("wlan") || is_associated(interface)) ? "up" : "down";
}

} // namespace qvcd

#include "status/link_state.h"

#include "base/file_text.h"
#include "base/text.h"
#include "platform/sysroot.h"
#include "status/wireless.h"

#include <algorithm>
#include <linux/if.h>

namespace qvcd {

namespace {

enum class LinkState { absent, present, up, down };

constexpr unsigned kOperationalUp = 6; // RFC 2863

constexpr std::string_view text_of(LinkState state)
{
    switch (state) {
    case LinkState::up:
        return "up";
    case LinkState::down:
        return "down";
    case LinkState::present:
        return "present";
    case LinkState::absent:
        break;
    }
    return "unknown";
}

// A modem that has not dialled has no link, only the file that its manager writes.
LinkState modem_state(std::string_view interface)
{
    const int number = c_int(interface.substr(3));
    const std::string path = "/var/run/modem-" + std::to_string(number) + ".info";
    return file_exists(qv_sysroot_path(path)) ? LinkState::present : LinkState::absent;
}

LinkState wireless_state(const std::string &interface)
{
    unsigned char mac[6];
    read_access_point(interface, mac);
    return is_access_point(mac) ? LinkState::up : LinkState::down;
}

LinkState link_state(const NetLink *link, const std::string &interface)
{
    if (!link)
        return interface.starts_with("ppp") ? modem_state(interface) : LinkState::absent;
    if (link->operational_state != kOperationalUp && !(link->flags & IFF_RUNNING))
        return LinkState::down;
    return interface.starts_with("wlan") ? wireless_state(interface) : LinkState::up;
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
    return std::string(text_of(link_state(snapshot->link(interface), interface)));
}

} // namespace qvcd

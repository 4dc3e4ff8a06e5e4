#include "status/uplink.h"

#include "base/command_lock.h"
#include "status/http_probe.h"
#include "status/link_state.h"
#include "store/database.h"

#include <resolv.h>

namespace qvcd {

namespace {

// The interface of a link-state API stands in its "attr".
struct LocalLink {
    const char *api;
    const char *interface;
};

constexpr LocalLink kLocalLinks[] = {
    {"Network.CurrentSettings.Interfaces.Ppp0.linkstate", "ppp2"},
    {"Network.CurrentSettings.Interfaces.Wlan0.linkstate", "wlan0"},
    {"Network.CurrentSettings.Interfaces.Eth0.linkstate", "eth0"},
};

} // namespace

bool check_local(Request &request)
{
    for (const LocalLink &link : kLocalLinks) {
        const std::string interface = meta_get(link.api, "attr").value_or(link.interface);
        if (linkstate_rfunc(request, nullptr, interface.c_str()) == "up")
            return true;
    }
    return false;
}

bool check_internet()
{
    const std::string maker =
        hdfDB.get_or("System.Configuration.Uplink.maker_url", "http://www.example.com/");
    const std::string open_web =
        hdfDB.get_or("System.Configuration.Uplink.public_url", "http://www.example.org/");
    const Unlocked unlocked;
    res_init(); // the name servers may have changed
    return http_reachable(maker) || http_reachable(open_web);
}

bool check_provider()
{
    return check_internet();
}

std::optional<std::string> uplink_rfunc(Request &request, const char *, const char *)
{
    if (check_internet())
        return check_provider() ? "provider" : "internet";
    return check_local(request) ? "local" : "none";
}

} // namespace qvcd

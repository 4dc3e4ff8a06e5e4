#include "status/uplink.h"

#include "base/command_lock.h"
#include "status/http_probe.h"
#include "status/link_state.h"
#include "store/database.h"

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

bool check_local(Request &request)
{
    for (const LocalLink &link : kLocalLinks) {
        const std::string interface = meta_get(link.api, "attr").value_or(link.interface);
        if (linkstate_rfunc(request, nullptr, interface.c_str()) == "up")
            return true;
    }
    return false;
}

struct Reach {
    bool internet = false;
    bool provider = false;
};

Reach probe()
{
    const std::string maker =
        hdfDB.get_or("System.Configuration.Uplink.maker_url", "http://www.example.com/");
    const std::string open_web =
        hdfDB.get_or("System.Configuration.Uplink.public_url", "http://www.example.org/");
    const Unlocked unlocked;
    const auto answers = [&] { return http_reachable(maker) || http_reachable(open_web); };
    const bool internet = answers();
    return {internet, internet && answers()};
}

} // namespace

std::optional<std::string> uplink_rfunc(Request &request, const char *, const char *)
{
    const Reach reach = request.once<Reach>(probe);
    if (reach.internet)
        return reach.provider ? "provider" : "internet";
    return check_local(request) ? "local" : "none";
}

} // namespace qvcd

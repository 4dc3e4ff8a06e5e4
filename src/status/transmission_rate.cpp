#include "status/transmission_rate.h"

#include "status/bond_info.h"
#include "store/database.h"

#include <algorithm>

namespace qvcd {

namespace {

std::string setting(const char *name, const char *fallback)
{
    return hdfDB.get_or(name, fallback);
}

// Truncated toward zero, within what 64 bits hold.
long long scaled(const char *name, long long fallback, double factor)
{
    const double rate = static_cast<double>(hdfDB.get_int(name, fallback)) * factor;
    return static_cast<long long>(std::clamp(rate, -9.2e18, 9.2e18));
}

// The first rule that applies decides.
long long rate_in_force(Request &request)
{
    const long long wired =
        hdfDB.get_int("VideoEncoder.RateControl.Configuration.wired_max_transmission_rate", 10000000);
    const std::string bond = setting("Bond.Configuration.mode", "disabled");
    const std::string stream = setting("VideoStreamer.Settings.1.mode", "disabled");

    if (setting("VideoEncoder.RateControl.Configuration.mode", "auto") == "manual")
        return hdfDB.get_int("VideoEncoder.RateControl.Configuration.max_transmission_rate", 10000000);
    if (bond == "link")
        return setting("Bond.Configuration.connect_mode", "auto") == "auto" ? 4000000 : wired;
    if (bond == "bond" && bond_unit(request).up()) {
        if (hdfDB.get_int("Bond.Configuration.adapt_br", 1) == 0)
            return wired;
        const bool first_protocol = hdfDB.get_int("Bond.Configuration.bonding_protocol_version", 2) == 1;
        return scaled("Bond.Configuration.max_bitrate", 2000000, first_protocol ? 1.5 : 1.2); // head room
    }
    if (stream == "ASI") // on another scale than the other rates, as the ASI settings are
        return scaled("VideoStreamer.Settings.1.ASI.bitrate", 7000, 0.9);
    if (stream == "TS")
        return hdfDB.get_int("VideoStreamer.Settings.1.TS.ConstantBitrate.enable", 0) == 0
                   ? wired
                   : scaled("VideoStreamer.Settings.1.TS.ConstantBitrate.target_bitrate", 7000000, 1.1);
    if (setting("Network.Interfaces.Wlan0.mode", "disabled") == "disabled")
        return wired;
    return hdfDB.get_int("VideoEncoder.RateControl.Configuration.wifi_max_transmission_rate", 5500000);
}

} // namespace

std::optional<std::string> transmission_rate_rfunc(Request &request, const char *, const char *)
{
    return std::to_string(rate_in_force(request));
}

} // namespace qvcd

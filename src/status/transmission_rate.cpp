#include "status/transmission_rate.h"

#include "platform/bonding.h"
#include "store/database.h"

#include <string_view>

namespace qvcd {

namespace {

double number(const char *name, long long fallback)
{
    return static_cast<double>(hdfDB.get_int(name, fallback));
}

bool is(const char *name, std::string_view fallback, std::string_view wanted)
{
    return hdfDB.get(name).value_or(fallback) == wanted;
}

double wired_maximum()
{
    return number("VideoEncoder.RateControl.Configuration.wired_max_transmission_rate", 10000000);
}

double wireless_maximum()
{
    return number("VideoEncoder.RateControl.Configuration.wifi_max_transmission_rate", 5500000);
}

double linked_maximum()
{
    return is("Bond.Configuration.connect_mode", "auto", "auto") ? 4000000 : wired_maximum();
}

// The first protocol of the bonding unit needs more head room.
double bonded_maximum()
{
    if (number("Bond.Configuration.adapt_br", 1) == 0)
        return wired_maximum();
    const double factor = number("Bond.Configuration.bonding_protocol_version", 2) == 1 ? 1.5 : 1.2;
    return number("Bond.Configuration.max_bitrate", 2000000) * factor;
}

double transport_stream_maximum()
{
    if (number("VideoStreamer.Settings.1.TS.ConstantBitrate.enable", 0) == 0)
        return wired_maximum();
    return number("VideoStreamer.Settings.1.TS.ConstantBitrate.target_bitrate", 7000000) * 1.1;
}

struct Rule {
    bool (*applies)();
    double (*rate)(); // bits per second
};

// The first rule that applies decides.
constexpr Rule kRules[] = {
    {[] { return is("VideoEncoder.RateControl.Configuration.mode", "auto", "manual"); },
     []() -> double {
         return number("VideoEncoder.RateControl.Configuration.max_transmission_rate", 10000000);
     }},
    {[] { return is("Bond.Configuration.mode", "disabled", "link"); }, linked_maximum},
    {[] { return is("Bond.Configuration.mode", "disabled", "bond") && bonding_state() == 1; },
     bonded_maximum},
    // The ASI default is on another scale than the other rates, as the ASI settings are.
    {[] { return is("VideoStreamer.Settings.1.mode", "disabled", "ASI"); },
     [] { return number("VideoStreamer.Settings.1.ASI.bitrate", 7000) * 0.9; }},
    {[] { return is("VideoStreamer.Settings.1.mode", "disabled", "TS"); }, transport_stream_maximum},
    {[] { return is("Network.Interfaces.Wlan0.mode", "disabled", "disabled"); }, wired_maximum},
    {[] { return true; }, wireless_maximum},
};

double rate_in_force()
{
    for (const Rule &rule : kRules) {
        if (rule.applies())
            return rule.rate();
    }
    return wired_maximum();
}

} // namespace

std::optional<std::string> transmission_rate_rfunc(Request &, const char *, const char *)
{
    return std::to_string(static_cast<long long>(rate_in_force())); // truncated toward zero
}

} // namespace qvcd

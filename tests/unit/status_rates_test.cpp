#include "status/transmission_rate.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class TransmissionRateTest : public StatusTest {};

TEST_F(TransmissionRateTest, FirstRuleThatAppliesDecides)
{
    const std::string control = "VideoEncoder.RateControl.Configuration";
    const std::pair<std::string, std::string> wired{control + ".wired_max_transmission_rate", "9000000"};
    const std::pair<std::string, std::string> wifi{control + ".wifi_max_transmission_rate", "3000000"};
    const std::pair<std::string, std::string> bond{"Bond.Configuration.mode", "bond"};
    const std::pair<std::string, std::string> link{"Bond.Configuration.mode", "link"};
    const std::pair<std::string, std::string> wlan{"Network.Interfaces.Wlan0.mode", "managed"};
    const std::pair<std::string, std::string> ts{"VideoStreamer.Settings.1.mode", "TS"};
    const std::pair<std::string, std::string> asi{"VideoStreamer.Settings.1.mode", "ASI"};
    const std::pair<std::string, std::string> cbr{"VideoStreamer.Settings.1.TS.ConstantBitrate.enable", "1"};
    const std::pair<std::string, std::string> manual{control + ".mode", "manual"};
    const std::pair<std::string, std::string> bitrate{"Bond.Configuration.max_bitrate", "3000000"};
    const struct {
        bool unit_up;
        Values settings;
        const char *rate;
    } cases[] = {
        {false, {}, "10000000"},
        {false, {wired}, "9000000"},
        {false, {wired, wlan}, "5500000"},
        {false, {wifi, wlan}, "3000000"},
        {true, {manual, link, wlan, asi}, "10000000"},
        {true, {manual, bond, {control + ".max_transmission_rate", "123"}}, "123"},
        {true, {link, wlan, asi}, "4000000"},
        {true, {link, wired, {"Bond.Configuration.connect_mode", "wifi"}}, "9000000"},
        {true, {bond}, "2400000"},
        {true, {bond, bitrate}, "3600000"},
        {true, {bond, bitrate, {"Bond.Configuration.bonding_protocol_version", "1"}}, "4500000"},
        {true, {bond, bitrate, {"Bond.Configuration.bonding_protocol_version", "2"}}, "3600000"},
        {true, {bond, wired, wlan, {"Bond.Configuration.adapt_br", "0"}}, "9000000"},
        {false, {bond, bitrate}, "10000000"},
        {false, {bond, asi}, "6300"},
        {false, {asi, wlan, {"VideoStreamer.Settings.1.ASI.bitrate", "11"}}, "9"}, // 9.9
        {false, {ts, wlan, wired}, "9000000"},
        {false, {ts, wlan, cbr}, "7700000"},
        {false,
         {ts, cbr, {"VideoStreamer.Settings.1.TS.ConstantBitrate.target_bitrate", "5000000"}},
         "5500000"},
        {true, {bond, {"Bond.Configuration.max_bitrate", "2147483647"}}, "2576980376"},
    };
    for (const auto &c : cases) {
        appliance_root().write("var/run/bond/state", c.unit_up ? "up\n" : "down\n");
        only_values(c.settings);
        EXPECT_EQ(read_with(transmission_rate_rfunc, nullptr, nullptr), c.rate)
            << testing::PrintToString(c.settings);
    }
}

} // namespace
} // namespace qvcd

#include "status/bond_info.h"
#include "status/ifb_info.h"
#include "status/transmission_rate.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class BondingTest : public StatusTest {};

TEST_F(BondingTest, UnitInfo)
{
    const struct {
        const char *state, *status, *setting; // of the unit; the mode
        std::vector<Reading> readings;
    } cases[] = {
        {"up", "running\n", "bond", {{"mode", "bond"}, {"status", "running"}, {"colour", ""}}},
        {"down",
         "",
         "bond",
         {{"mode", "disabled"}, {"state", "down"}, {"status", "stopped"}, {"version", "n/a"}}},
        {"up\nmore", "paused\nmore", "link", {{"state", "up"}, {"status", "paused"}}},
        {"upper", "", "link", {{"state", "unknown"}, {nullptr, kNothing}}},
    };
    for (const auto &c : cases) {
        appliance_root().write("var/run/bond/state", c.state);
        appliance_root().write("var/run/bond/status", c.status);
        only_values({{"Bond.Configuration.mode", c.setting}});
        expect_reads(bond_info_rfunc, c.readings, c.state);
    }
}

Values transport_stream(const std::string &group, const char *protocol, const char *host, const char *port)
{
    return {{group + ".protocol", protocol},
            {group + ".host", host},
            {group + ".port", port},
            {group + ".Server.host", "server"},
            {group + ".Server.port", "6000"}};
}

void expect_channel(Reader reader, const Values &settings, const char *port, const char *host)
{
    only_values(settings);
    expect_reads(reader, {{"port", port}, {"host", host}, {"colour", ""}, {nullptr, kNothing}},
                 testing::PrintToString(settings));
}

TEST_F(BondingTest, ReturnChannelBesideTheStream)
{
    const auto player = [](const char *protocol) {
        return transport_stream("VideoPlayer.Settings.1.TS", protocol, "target", "5000");
    };
    const auto streamer = [](const char *protocol, const char *port) {
        return transport_stream("VideoStreamer.Settings.1.TS", protocol, "target", port);
    };
    expect_channel(ifb_enc_info_rfunc, {}, "10", "");
    expect_channel(ifb_enc_info_rfunc, player("udp"), "5010", "");
    expect_channel(ifb_enc_info_rfunc, player("tcp_pull"), "6010", "server");
    expect_channel(ifb_dec_info_rfunc, streamer("tcp_pull", "5000"), "6010", "server");
    const std::pair<const char *, const char *> ports[] = {{"65525", "65535"},
                                                           {"65526", "65516"},
                                                           {"65536", kNothing},
                                                           {"0", kNothing},
                                                           {"4294972296", kNothing}};
    for (const auto &[port, ifb] : ports)
        expect_channel(ifb_dec_info_rfunc, streamer("udp", port), ifb, "target");
}

TEST_F(BondingTest, ReturnChannelOverBonding)
{
    const struct {
        const char *use, *host, *manual, *port, *ifb_host;
    } cases[] = {
        {"auto", "target", "1", "5010", "target"},
        {"auto", "", "1", "6010", ""},
        {"push", "", "1", "5010", ""},
        {"server", "target", "1", "6010", ""},
        {"other", "target", "1", "10", ""},
        {"manual", "target", "7000", "7000", "hand"},
        {"manual", "target", "70000", kNothing, "hand"},
    };
    for (const auto &c : cases) {
        Values settings = transport_stream("VideoStreamer.Settings.1.TS", "udp", c.host, "5000");
        settings.emplace_back("Bond.Configuration.IFB.use_settings", c.use);
        settings.emplace_back("Bond.Configuration.IFB.port", c.manual);
        settings.emplace_back("Bond.Configuration.IFB.host", "hand");
        expect_channel(ifb_bond_info_rfunc, settings, c.port, c.ifb_host);
    }
}

TEST_F(BondingTest, FirstRuleThatAppliesDecidesTheRate)
{
    using Setting = std::pair<std::string, std::string>;
    const std::string control = "VideoEncoder.RateControl.Configuration";
    const std::string stream = "VideoStreamer.Settings.1";
    const Setting wired{control + ".wired_max_transmission_rate", "9000000"};
    const Setting bitrate{"Bond.Configuration.max_bitrate", "3000000000"};
    const Setting bond{"Bond.Configuration.mode", "bond"}, link{"Bond.Configuration.mode", "link"};
    const Setting wlan{"Network.Interfaces.Wlan0.mode", "managed"};
    const Setting ts{stream + ".mode", "TS"}, asi{stream + ".mode", "ASI"};
    const Setting cbr{stream + ".TS.ConstantBitrate.enable", "1"};
    const Setting manual{control + ".mode", "manual"};
    const struct {
        bool unit_up;
        Values settings;
        const char *rate;
    } cases[] = {
        {false, {}, "10000000"},
        {false, {{wired.first, "99999999999999999999"}}, "9223372036854775807"},
        {false, {wired, wlan}, "5500000"},
        {false, {{control + ".wifi_max_transmission_rate", "3000000"}, wlan}, "3000000"},
        {true, {manual, bond, wlan, asi, {control + ".max_transmission_rate", "123"}}, "123"},
        {true, {link, wlan, asi}, "4000000"},
        {true, {link, wired, {"Bond.Configuration.connect_mode", "wifi"}}, "9000000"},
        {true, {bond, bitrate, {"Bond.Configuration.bonding_protocol_version", "1"}}, "4500000000"},
        {true, {bond, {bitrate.first, "99999999999999999999"}}, "9200000000000000000"},
        {true, {bond, wired, wlan, {"Bond.Configuration.adapt_br", "0"}}, "9000000"},
        {false, {asi, wlan, {stream + ".ASI.bitrate", "11"}}, "9"}, // 9.9
        {false, {ts, wlan, wired}, "9000000"},
        {false, {ts, wlan, cbr}, "7700000"},
    };
    for (const auto &c : cases) {
        appliance_root().write("var/run/bond/state", c.unit_up ? "up\n" : "down\n");
        only_values(c.settings);
        expect_reads(transmission_rate_rfunc, {{nullptr, c.rate}}, testing::PrintToString(c.settings));
    }
}

} // namespace
} // namespace qvcd

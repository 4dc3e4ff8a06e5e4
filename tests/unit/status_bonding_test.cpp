#include "status/bond_info.h"
#include "status/ifb_info.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class BondingTest : public StatusTest {};

TEST_F(BondingTest, UnitInfo)
{
    const struct {
        const char *state, *status, *mode; // of the unit, and the setting
        const char *attr, *text;
    } cases[] = {
        {"up", "running", "bond", "mode", "bond"},
        {"down", "", "bond", "mode", "disabled"},
        {"", "", "bond", "mode", "disabled"},
        {"down", "", "link", "mode", "link"},
        {"up", "", "link", "state", "up"},
        {"down", "", "link", "state", "down"},
        {"broken", "", "link", "state", "unknown"},
        {"up", "running", "link", "status", "running"},
        {"up", "paused", "link", "status", "paused"},
        {"up", "", "link", "status", "stopped"},
        {"down", "", "bond", "version", "n/a"},
        {"up", "", "link", "colour", kUntouched},
        {"up", "", "link", nullptr, kNothing},
    };
    for (const auto &c : cases) {
        appliance_root().write("var/run/bond/state", c.state);
        appliance_root().write("var/run/bond/status", c.status);
        only_values({{"Bond.Configuration.mode", c.mode}});
        EXPECT_EQ(read_with(bond_info_rfunc, nullptr, c.attr), c.text)
            << c.state << " " << (c.attr ? c.attr : "null");
    }
    only_values({});
    EXPECT_EQ(read_with(bond_info_rfunc, nullptr, "mode"), "disabled");
}

TEST_F(BondingTest, IfbPortRule)
{
    const std::pair<int, long> cases[] = {
        {5000, 5010}, {65525, 65535}, {65526, 65516}, {65530, 65520}, {0, 10}};
    for (const auto &[stream, ifb] : cases)
        EXPECT_EQ(ifb_port(stream), ifb) << stream;
}

constexpr char kPlayer[] = "VideoPlayer.Settings.1.TS";
constexpr char kStreamer[] = "VideoStreamer.Settings.1.TS";

Values transport_stream(const std::string &group, const char *protocol, const char *host)
{
    return {{group + ".protocol", protocol},
            {group + ".host", host},
            {group + ".port", "5000"},
            {group + ".Server.host", "server"},
            {group + ".Server.port", "6000"}};
}

void expect_channel(Reader reader, const Values &settings, const char *port, const char *host)
{
    only_values(settings);
    EXPECT_EQ(read_with(reader, nullptr, "port"), port) << testing::PrintToString(settings);
    EXPECT_EQ(read_with(reader, nullptr, "host"), host) << testing::PrintToString(settings);
}

TEST_F(BondingTest, IfbBesideTheStream)
{
    expect_channel(ifb_enc_info_rfunc, {}, "10", "");
    expect_channel(ifb_enc_info_rfunc, transport_stream(kPlayer, "udp", "target"), "5010", "");
    expect_channel(ifb_enc_info_rfunc, transport_stream(kPlayer, "tcp_pull", "target"), "6010", "server");
    expect_channel(ifb_dec_info_rfunc, {}, "10", "");
    expect_channel(ifb_dec_info_rfunc, transport_stream(kStreamer, "udp", "target"), "5010", "target");
    expect_channel(ifb_dec_info_rfunc, transport_stream(kStreamer, "tcp_pull", "target"), "6010", "server");
}

TEST_F(BondingTest, IfbOverBonding)
{
    const struct {
        const char *use, *host;
        const char *port, *ifb_host;
    } cases[] = {
        {"auto", "target", "5010", "target"}, {"auto", "", "6010", ""},
        {"push", "target", "5010", "target"}, {"push", "", "5010", ""},
        {"server", "target", "6010", ""},     {"manual", "target", "7000", "by hand"},
        {"other", "target", "10", ""},
    };
    for (const auto &c : cases) {
        Values settings = transport_stream(kStreamer, "udp", c.host);
        settings.emplace_back("Bond.Configuration.IFB.use_settings", c.use);
        settings.emplace_back("Bond.Configuration.IFB.port", "7000");
        settings.emplace_back("Bond.Configuration.IFB.host", "by hand");
        expect_channel(ifb_bond_info_rfunc, settings, c.port, c.ifb_host);
    }
    expect_channel(ifb_bond_info_rfunc, {{"VideoStreamer.Settings.1.TS.host", "h"}}, "10", "h");
}

TEST_F(BondingTest, IfbAttributes)
{
    for (const Reader reader : {ifb_enc_info_rfunc, ifb_dec_info_rfunc, ifb_bond_info_rfunc}) {
        EXPECT_EQ(read_with(reader, nullptr, nullptr), kNothing);
        EXPECT_EQ(read_with(reader, nullptr, "colour"), kUntouched);
    }
}

} // namespace
} // namespace qvcd

#include "status/link_state.h"
#include "status/network_addresses.h"
#include "status/network_settings.h"
#include "status/wireless.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class NetworkTest : public StatusTest {};

TEST_F(NetworkTest, InterfaceFields)
{
    const InterfaceSnapshot snapshot{{{1, "lo", 0, 0, 65536, "00:00:00:00:00:00"},
                                      {2, "eth0", 0, 0, 1500, "02:0a:ff:00:00:5c"},
                                      {3, "ppp0", 0, 0, 0, {}},
                                      {4, "tun0", 0, 0, 0, {}}},
                                     {{2, "10.0.0.5", "10.0.15.255", 20},
                                      {2, "10.9.9.9", {}, 24},
                                      {1, "127.0.0.1", {}, 1},
                                      {4, {}, {}, 64}}};
    const struct {
        const char *interface, *field, *text;
    } cases[] = {
        {"eth0", "ipaddress", "10.0.0.5"},
        {"eth0", "broadcast", "10.0.15.255"},
        {"eth0", "submask", "255.255.240.0"},
        {"eth0", "mtu", "1500"},
        {"eth0", "macaddress", "02:0A:FF:00:00:5C"},
        {"lo", "broadcast", kNothing},
        {"tun0", "submask", "255.255.255.255"},
        {"tun0", "ipaddress", kNothing},
        {"ppp0", "submask", kNothing},
        {"ppp0", "mtu", kNothing},
        {"ppp0", "macaddress", "Error getting"},
        {"wlan0", "macaddress", "Not Available"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(interface_field(snapshot, c.interface, c.field).value_or(kNothing), c.text)
            << c.interface << " " << c.field;
}

TEST_F(NetworkTest, SplitsInterfaceAndField)
{
    const struct {
        const char *text, *interface, *field;
    } cases[] = {{"wlan0 mtu", "wlan0", "mtu"},
                 {"mtu", "eth0", "mtu"},
                 {"  eth1\t mac more", "eth1", "mac"},
                 {"", "eth0", ""}};
    for (const auto &c : cases) {
        const InterfaceField split = split_interface_field(c.text, "eth0");
        EXPECT_EQ(split.interface, c.interface) << c.text;
        EXPECT_EQ(split.field, c.field) << c.text;
    }
    EXPECT_EQ(read_with(ifconfig_rfunc, nullptr, "lo ipaddress"), "127.0.0.1");
    EXPECT_EQ(read_with(ifconfig_rfunc, nullptr, nullptr), kNothing);
}

TEST_F(NetworkTest, ConfiguredAddressing)
{
    appliance_root().write("etc/network/eth0.cfg",
                           "GATEWAY=\"10.0.0.1\"\nNAMESERVER=10.0.0.2\ngateway=wrong\n");
    appliance_root().write("var/run/dhcp-config.eth0", "gateway=\"10.0.0.3\"\nGATEWAY=wrong\n");
    appliance_root().write("var/run/dhcp-config.wlan0", "domain=lan\n");
    const struct {
        const char *mode, *attr, *text;
    } cases[] = {
        {"static", "gateway", "10.0.0.1"},    {"static", "eth0 nameserver", "10.0.0.2"},
        {"static", "eth0 domain", kNothing},  {"dhcp-server", "ETH0 gateway", "10.0.0.1"},
        {"dhcp", "eth0 gateway", "10.0.0.3"}, {"link-local", "gateway", "10.0.0.3"},
        {"dhcp", "wlan0 domain", "lan"},      {"dhcp", "eth0 domain", kNothing},
        {"manual", "eth0 gateway", kNothing}, {"", "eth0 gateway", kNothing},
    };
    for (const auto &c : cases) {
        only_values(
            {{"Network.Interfaces.Eth0.ipmode", c.mode}, {"Network.Interfaces.Wlan0.ipmode", c.mode}});
        EXPECT_EQ(read_with(ifconfig_rfunc, nullptr, c.attr), c.text) << c.mode << " " << c.attr;
    }
    only_values({{"Network.Interfaces.ETH0.ipmode", "dhcp"}, {"Network.Interfaces.Eth0.ipmode", "static"}});
    EXPECT_EQ(read_with(ifconfig_rfunc, nullptr, "gateway"), "10.0.0.3")
        << "the name in capitals comes first";
}

TEST_F(NetworkTest, LinkStates)
{
    EXPECT_EQ(read_with(linkstate_rfunc, nullptr, "lo"), "up");
    EXPECT_EQ(read_with(linkstate_rfunc, nullptr, "ppp0"), "unknown");
    appliance_root().write("var/run/modem-0.info", ""); // a modem without a link
    appliance_root().write("var/run/modem-12.info", "");
    const std::pair<const char *, const char *> cases[] = {{"ppp0", "present"},
                                                           {"ppp", "present"},
                                                           {"ppp12", "present"},
                                                           {"ppp1", "unknown"},
                                                           {"modem0", "unknown"}};
    for (const auto &[interface, state] : cases)
        EXPECT_EQ(read_with(linkstate_rfunc, nullptr, interface), state) << interface;

    const struct {
        unsigned char mac[6];
        bool associated;
    } access_points[] = {
        {{0, 0, 0, 0, 0, 0}, false},
        {{0x44, 0x44, 0x44, 0x44, 0x44, 0x44}, false},
        {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, false},
        {{0x11, 0x11, 0x11, 0x11, 0x11, 0x11}, true},
        {{0, 0, 0, 0, 0, 1}, true},
    };
    for (const auto &c : access_points)
        EXPECT_EQ(is_access_point(c.mac), c.associated) << int{c.mac[0]};
}

TEST_F(NetworkTest, BoardSettings)
{
    EXPECT_EQ(read_with(network_rfunc, nullptr, "hostname"), kNothing) << "no tool";
    const std::string tool =
        appliance_root().write("etc/sysconfig/helpers/boardcfg", "#!/bin/sh\necho \" encoder-$1 more\"\n");
    std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
    appliance_root().write("etc/net.conf",
                           "IFCONFIG_OPTS=\"hw 00:11:22:33:44:55\"\nCONFIG_NETWORK_IPADDR_DYNAMIC=\"y\"\n");
    appliance_root().write("etc/static.conf", "IFCONFIG_OPTS=hw\nCONFIG_NETWORK_IPADDR_DYNAMIC=n\n");
    appliance_root().write("sys/class/net/eth0/address", "00:11:22:33:44:aa\n");
    const struct {
        const char *file, *attr, *text;
    } cases[] = {
        {nullptr, "HostName", "encoder-HostName"},
        {"/etc/net.conf", "IFCONFIG_OPTS", "00:11:22:33:44:55"},
        {"/etc/static.conf", "IFCONFIG_OPTS", kNothing},
        {nullptr, "IFCONFIG_OPTS", kNothing},
        {"/etc/net.conf", "CONFIG_NETWORK_IPADDR_DYNAMIC", "dhcp"},
        {"/etc/static.conf", "CONFIG_NETWORK_IPADDR_DYNAMIC", "static"},
        {"/etc/none.conf", "CONFIG_NETWORK_IPADDR_DYNAMIC", kNothing},
        {nullptr, "EthAddr", "00:11:22:33:44:AA"},
        {nullptr, "colour", kNothing},
        {nullptr, nullptr, kNothing},
    };
    for (const auto &c : cases)
        EXPECT_EQ(read_with(network_rfunc, c.file, c.attr), c.text) << or_null(c.attr);
    appliance_root().write("etc/sysconfig/helpers/boardcfg", "#!/bin/sh\nexit 1\n");
    EXPECT_EQ(read_with(network_rfunc, nullptr, "hostname"), kNothing);
}

TEST_F(NetworkTest, DefaultGateway)
{
    const std::string head =
        "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
    const std::string lan = "eth0\t0000000A\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n";
    const std::string half = "tun0\t00000000\t0200000A\t0003\t0\t0\t0\t00000080\t0\t0\t0\n";
    const std::string out = "eth0\t00000000\t0100000A\t0003\t0\t0\t0\t00000000\t0\t0\t0\n";
    const std::pair<std::string, std::string> cases[] = {
        {head + lan + out, "10.0.0.1"},
        {head + half + out, "10.0.0.1"}, // 0.0.0.0/1 is not the default
        {head + half + lan, "0.0.0.0"},
        {head, "0.0.0.0"},
        {head + "eth0 broken\n" + out, "0.0.0.0"},
        {"", ""},
        {head + lan + out.substr(0, out.size() - 1), "10.0.0.1"},
        {head + "eth0 xyz 0100000A 3 0 0 0 0 0 0 0\n", "0.0.0.0"},
    };
    EXPECT_EQ(read_with(gateway_rfunc, nullptr, nullptr), "");
    for (const auto &[routes, gateway] : cases) {
        appliance_root().write("proc/net/route", routes);
        EXPECT_EQ(read_with(gateway_rfunc, nullptr, nullptr), gateway) << routes;
    }
}

TEST_F(NetworkTest, Resolver)
{
    appliance_root().write("etc/resolv.conf", "# by hand\nnameserver 10.0.0.1\nnameserver\t10.0.0.2 x\n"
                                              "nameservers 10.0.0.3\n \n" +
                                                  std::string(2047, '-') + "search cut\nsearch\ndomain lan");
    const struct {
        const char *file, *keyword, *words;
    } cases[] = {
        {"/etc/resolv.conf", "nameserver", "10.0.0.110.0.0.2"}, // run together
        {"/etc/resolv.conf", "domain", "lan"},
        {"/etc/resolv.conf", "search", ""},
        {"/etc/resolv.conf", "options", kNothing},
        {"/etc/resolv.conf", "", kNothing},
        {"/etc/resolv.conf", nullptr, kNothing},
        {"/etc/none", "domain", kNothing},
        {nullptr, "domain", kNothing},
    };
    for (const auto &c : cases)
        EXPECT_EQ(read_with(resolv_rfunc, c.file, c.keyword), c.words) << or_null(c.keyword);
}

TEST_F(NetworkTest, WirelessFrequencies)
{
    const struct {
        WirelessFrequency frequency;
        double ghz;
        int channel;
    } cases[] = {
        {{2437, 6}, 2.437, 6},
        {{11, 0}, 2.462, 11},
        {{243700000, 1}, 2.437, 6},
        {{5230, 6}, 5.23, 46},
        {{58254, 5}, 5.8254, 165}, // truncated to MHz
        {{2438, 6}, 2.438, 0},
        {{15, 0}, 0, 15},
        {{0, 0}, 0, 0},
        {{165, 0}, 5.825, 165},
        {{2147483647, 32767}, std::numeric_limits<double>::infinity(), 0},
        {{-5, 0}, 0, -5},
    };
    for (const auto &c : cases) {
        EXPECT_DOUBLE_EQ(freq_to_double(c.frequency), c.ghz) << c.frequency.mantissa;
        EXPECT_EQ(freq_to_channel(c.frequency), c.channel) << c.frequency.mantissa;
    }
}

TEST_F(NetworkTest, WirelessWithoutADriverReadsAsZero)
{
    const std::pair<const char *, const char *> cases[] = {
        {"lo quality", "0/0"}, {"lo freq", "0.000"}, {"lo channel", "0"},
        {"lo mode", "auto"},   {"lo essid", ""},     {"lo Mode", kNothing},
        {"bitrate", kNothing}, {nullptr, kNothing},  {"an-interface-with-a-long-name mode", "auto"},
    };
    for (const auto &[attr, text] : cases)
        EXPECT_EQ(read_with(iwconfig_rfunc, nullptr, attr), text) << or_null(attr);
    EXPECT_EQ(read_with(iwpassword_rfunc, "/etc/none", "psk"), "********");
}

} // namespace
} // namespace qvcd

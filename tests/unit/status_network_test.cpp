#include "status/link_state.h"
#include "status/network_addresses.h"
#include "status/network_settings.h"
#include "status/wireless.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class NetworkTest : public StatusTest {
  protected:
    static void write(const std::string &name, const std::string &text)
    {
        appliance_root().write(name, text);
    }
};

TEST_F(NetworkTest, InterfaceFields)
{
    const InterfaceSnapshot snapshot{
        {{2, "eth0", 0, 0, 1500, "02:0a:ff:00:00:5c"}, {3, "ppp0", 0, 0, 0, {}}, {4, "tun0", 0, 0, 0, {}}},
        {{2, "10.0.0.5", "10.0.15.255", 20}, {2, "10.9.9.9", {}, 24}, {4, {}, {}, 64}}};
    const struct {
        const char *interface, *field, *text;
    } cases[] = {
        {"eth0", "ipaddress", "10.0.0.5"},
        {"eth0", "broadcast", "10.0.15.255"},
        {"eth0", "submask", "255.255.240.0"},
        {"eth0", "mtu", "1500"},
        {"eth0", "macaddress", "02:0A:FF:00:00:5C"},
        {"tun0", "submask", "255.255.255.255"},
        {"tun0", "ipaddress", kNothing},
        {"ppp0", "mtu", kNothing},
        {"ppp0", "macaddress", "Error getting"},
        {"wlan0", "macaddress", "Not Available"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(interface_field(snapshot, c.interface, c.field).value_or(kNothing), c.text)
            << c.interface << " " << c.field;
    Request request(0xffff);
    ASSERT_TRUE(interface_snapshot(request));
    EXPECT_EQ(interface_snapshot(request), interface_snapshot(request)) << "one serves the whole request";
    expect_reads(ifconfig_rfunc,
                 {{"  lo\t ipaddress more", "127.0.0.1"}, {"", kNothing}, {nullptr, kNothing}});
}

TEST_F(NetworkTest, ConfiguredAddressing)
{
    write("etc/network/eth0.cfg", "GATEWAY=\"10.0.0.1\"\nNAMESERVER=10.0.0.2\ngateway=wrong\n");
    write("var/run/dhcp-config.eth0", "gateway=\"10.0.0.3\"\nGATEWAY=wrong\n");
    write("var/run/dhcp-config.wlan0", "domain=lan\n");
    const struct {
        const char *mode;
        std::vector<Reading> readings;
    } modes[] = {
        {"static", {{"gateway", "10.0.0.1"}, {"eth0 nameserver", "10.0.0.2"}, {"eth0 domain", kNothing}}},
        {"dhcp-server", {{"ETH0 gateway", "10.0.0.1"}}},
        {"dhcp", {{"eth0 gateway", "10.0.0.3"}, {"wlan0 domain", "lan"}}},
        {"link-local", {{"gateway", "10.0.0.3"}}},
        {"manual", {{"eth0 gateway", kNothing}}},
    };
    for (const auto &[mode, readings] : modes) {
        only_values({{"Network.Interfaces.Eth0.ipmode", mode}, {"Network.Interfaces.Wlan0.ipmode", mode}});
        expect_reads(ifconfig_rfunc, readings, mode);
    }
    only_values({{"Network.Interfaces.ETH0.ipmode", "dhcp"}, {"Network.Interfaces.Eth0.ipmode", "static"}});
    expect_reads(ifconfig_rfunc, {{"gateway", "10.0.0.3"}}, "the name in capitals comes first");
}

TEST_F(NetworkTest, LinkStates)
{
    write("var/run/modem-0.info", ""); // a modem without a link
    write("var/run/modem-12.info", "");
    expect_reads(linkstate_rfunc, {{"lo", "up"},
                                   {"ppp0", "present"},
                                   {"ppp12", "present"},
                                   {"ppp1", "unknown"},
                                   {"modem0", "unknown"}});
    const std::pair<unsigned char, unsigned char> none[] = {{0, 0}, {0x44, 0x44}, {0xff, 0xff}};
    for (const auto &[byte, last] : none)
        EXPECT_FALSE(is_access_point({byte, byte, byte, byte, byte, last})) << int{byte};
    EXPECT_TRUE(is_access_point({0x11, 0x11, 0x11, 0x11, 0x11, 0x11}));
    EXPECT_TRUE(is_access_point({0, 0, 0, 0, 0, 1}));
}

TEST_F(NetworkTest, BoardSettings)
{
    const std::string tool = appliance_root().path("etc/sysconfig/helpers/boardcfg");
    expect_reads(network_rfunc, {{"hostname", kNothing}, {"colour", kNothing}, {nullptr, kNothing}});
    write("etc/sysconfig/helpers/boardcfg", "#!/bin/sh\necho \" encoder-$1 more\"\n");
    std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
    write("etc/net.conf", "IFCONFIG_OPTS=\"hw 00:11:22:33:44:55\"\nCONFIG_NETWORK_IPADDR_DYNAMIC=\"y\"\n");
    write("etc/static.conf", "IFCONFIG_OPTS=hw\nCONFIG_NETWORK_IPADDR_DYNAMIC=n\n");
    write("sys/class/net/eth0/address", "00:11:22:33:44:aa\n");
    expect_reads(network_rfunc, {{"HostName", "encoder-HostName"},
                                 {"EthAddr", "00:11:22:33:44:AA"},
                                 {"IFCONFIG_OPTS", "00:11:22:33:44:55", "/etc/net.conf"},
                                 {"IFCONFIG_OPTS", kNothing, "/etc/static.conf"},
                                 {"IFCONFIG_OPTS", kNothing},
                                 {"CONFIG_NETWORK_IPADDR_DYNAMIC", "dhcp", "/etc/net.conf"},
                                 {"CONFIG_NETWORK_IPADDR_DYNAMIC", "static", "/etc/static.conf"},
                                 {"CONFIG_NETWORK_IPADDR_DYNAMIC", kNothing}});
    write("etc/sysconfig/helpers/boardcfg", "#!/bin/sh\nexit 1\n");
    expect_reads(network_rfunc, {{"hostname", kNothing}});
}

TEST_F(NetworkTest, DefaultGateway)
{
    const std::string head =
        "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
    const std::string lan = "eth0\t0000000A\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n";
    const std::string half = "tun0\t00000000\t0200000A\t0003\t0\t0\t0\t00000080\t0\t0\t0\n";
    const std::string out = "eth0\t00000000\t0100000A\t0003\t0\t0\t0\t00000000\t0\t0\t0\n";
    const std::pair<std::string, const char *> cases[] = {
        {head + lan + half + out, "10.0.0.1"}, // 0.0.0.0/1 is not the default
        {head + half + lan, "0.0.0.0"},
        {head + "eth0 broken\n" + out, "0.0.0.0"},
        {"", ""},
        {head + "eth0 xyz 0100000A 3 0 0 0 0 0 0 0\n", "0.0.0.0"},
    };
    for (const auto &[routes, gateway] : cases) {
        write("proc/net/route", routes);
        expect_reads(gateway_rfunc, {{nullptr, gateway}}, routes);
    }
}

TEST_F(NetworkTest, Resolver)
{
    write("etc/resolv.conf",
          "# by hand\nnameserver 10.0.0.1\nnameserver\t10.0.0.2 x\nnameservers 10.0.0.3\n \n" +
              std::string(2047, '-') + "search cut\nsearch\ndomain lan");
    const char *const file = "/etc/resolv.conf";
    expect_reads(resolv_rfunc, {{"nameserver", "10.0.0.110.0.0.2", file}, // run together
                                {"domain", "lan", file},
                                {"search", "", file},
                                {"options", kNothing, file},
                                {"", kNothing, file},
                                {nullptr, kNothing, file},
                                {"domain", kNothing, "/etc/none"},
                                {"domain", kNothing}});
}

TEST_F(NetworkTest, Wireless)
{
    const struct {
        WirelessFrequency frequency;
        double ghz;
        int channel;
    } cases[] = {
        {{2437, 6}, 2.437, 6},
        {{58254, 5}, 5.8254, 165}, // truncated to MHz
        {{15, 0}, 0, 15},
        {{2147483647, 32767}, std::numeric_limits<double>::infinity(), 0},
    };
    for (const auto &c : cases) {
        EXPECT_DOUBLE_EQ(freq_to_double(c.frequency), c.ghz) << c.frequency.mantissa;
        EXPECT_EQ(freq_to_channel(c.frequency), c.channel) << c.frequency.mantissa;
    }
    // No driver answers here.
    expect_reads(iwconfig_rfunc, {{"lo quality", "0/0"},
                                  {"lo freq", "0.000"},
                                  {"lo essid", ""},
                                  {"bitrate", kNothing},
                                  {nullptr, kNothing},
                                  {"an-interface-with-a-long-name mode", "auto"}});
    expect_reads(iwpassword_rfunc, {{"psk", "********", "/etc/none"}});
}

} // namespace
} // namespace qvcd

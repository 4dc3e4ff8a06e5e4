#include "auth/login_delays.h"
#include "auth/trust.h"
#include "platform/line_server.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace qvcd {
namespace {

using namespace std::chrono_literals;

Peer tcp(const std::string &address)
{
    Peer peer;
    peer.address = address;
    return peer;
}

Peer local(uid_t user, gid_t group, std::vector<gid_t> more = {})
{
    Peer peer;
    peer.local = true;
    peer.uid = user;
    peer.gid = group;
    peer.groups = std::move(more);
    return peer;
}

TEST(Trust, SourcesOverTcp)
{
    const struct {
        const char *sources;
        std::vector<const char *> in, out;
    } rows[] = {
        {"none", {}, {"127.0.0.1", "::1"}},
        {"loopback", {"127.0.0.1", "127.255.1.2", "::1"}, {"128.0.0.1", "126.255.255.255", "::2", "::", ""}},
        {"all", {"192.0.2.1", "2001:db8::1", ""}, {}},
        {"10.0.0.0/8", {"10.0.0.0", "10.255.255.255"}, {"11.0.0.0", "9.255.255.255", "127.0.0.1", "a00::"}},
        {"192.0.2.128/25", {"192.0.2.128", "192.0.2.255"}, {"192.0.2.127", "192.0.3.128"}},
        {"::/0", {"::1", "ffff::"}, {"127.0.0.1"}},
        {"2001:db8::/33", {"2001:db8:7fff::1"}, {"2001:db8:8000::1", "2001:db9::"}},
        {"::ffff:10.0.0.0/104", {"10.1.2.3"}, {"11.0.0.0"}},
    };
    for (const auto &row : rows) {
        Trust trust;
        ASSERT_TRUE(trust.set_tcp(row.sources)) << row.sources;
        for (const char *address : row.in)
            EXPECT_TRUE(trust.caller(tcp(address)).trusted) << row.sources << " " << address;
        for (const char *address : row.out)
            EXPECT_FALSE(trust.caller(tcp(address)).trusted) << row.sources << " " << address;
    }
    EXPECT_TRUE(Trust().caller(tcp("127.0.0.1")).trusted);
    EXPECT_FALSE(Trust().caller(tcp("192.0.2.1")).trusted);
}

TEST(Trust, BadSourcesAreRefusedAndChangeNothing)
{
    for (const char *bad : {"", ",", "10.0.0.0/8,", ",10.0.0.0/8", "10.0.0.0/8 ", "none,none", "loopback,all",
                            "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/-0", "10.0.0.0/ 8", "10.0.0.0/8/8", "/8",
                            "::/129", "10.0.0/8", "::1%lo", "::ffff:0.0.0.0/95", "localhost", "All"}) {
        Trust trust;
        EXPECT_FALSE(trust.set_tcp(bad)) << bad;
        EXPECT_TRUE(trust.caller(tcp("127.0.0.1")).trusted) << bad;
        EXPECT_FALSE(trust.caller(tcp("10.0.0.1")).trusted) << bad;
    }
}

TEST(Trust, LocalUsersAndGroups)
{
    const uid_t own = geteuid();
    const uid_t other = own + 4711;
    const struct {
        std::optional<gid_t> group;
        Peer peer;
        bool trusted;
    } rows[] = {
        {{}, local(0, 4), true},
        {{}, local(own, 4), true},
        {{}, local(other, 0, {0}), false},
        {{}, local(other, static_cast<gid_t>(-1)), false},
        {77, local(other, 77), true},
        {77, local(other, 4, {5, 77}), true},
        {77, local(other, 4, {5, 78}), false},
        {77, local(static_cast<uid_t>(-1), static_cast<gid_t>(-1)), false}, // the kernel did not tell
    };
    for (const auto &row : rows) {
        const Caller caller = Trust(row.group).caller(row.peer);
        EXPECT_EQ(row.trusted, caller.trusted) << row.peer.uid << " " << row.peer.gid;
        EXPECT_TRUE(caller.local);
        EXPECT_EQ("user " + std::to_string(row.peer.uid), caller.source);
    }
    Trust trust;
    trust.set_tcp("all"); // is of TCP only
    EXPECT_FALSE(trust.caller(local(other, 4)).trusted);
}

TEST(Trust, OneClientsIpv6AddressesAreOneSource)
{
    EXPECT_EQ(source_of_address("2001:db8:0:1::5"), source_of_address("2001:db8:0:1:ffff::"));
    EXPECT_NE(source_of_address("2001:db8:0:1::5"), source_of_address("2001:db8:0:2::5"));
    EXPECT_EQ("192.0.2.1", source_of_address("192.0.2.1"));
    EXPECT_EQ("user 33", source_of_address("user 33"));
}

class Delays : public testing::Test {
  protected:
    long long fail(const std::string &who) { return delays.failed(who, now).count(); }
    long long left(const std::string &who) { return delays.left(who, now).count(); }

    LoginDelays delays;
    LoginDelays::Time now{1000h};
};

TEST_F(Delays, DoubleFromTheFifthFailureOn)
{
    for (const long long delay : {0, 0, 0, 0, 1, 2, 4, 8, 16, 32, 60, 60}) {
        EXPECT_EQ(delay, fail("a"));
        EXPECT_EQ(delay, left("a"));
        if (delay == 0)
            continue;
        now += delay * 1s - 1ms;
        EXPECT_EQ(1, left("a"));
        now += 1ms;
        EXPECT_EQ(0, left("a"));
    }
    for (int i = 0; i < 100000; ++i)
        fail("a");
    EXPECT_EQ(60, left("a"));
    EXPECT_EQ(0, left("b"));
    delays.succeeded("a");
    EXPECT_EQ(0, left("a"));
    EXPECT_EQ(0, fail("a"));
}

TEST_F(Delays, FailuresOfLongAgoAreForgotten)
{
    for (int i = 0; i < 7; ++i)
        fail("a");
    now += 59min;
    EXPECT_EQ(8, fail("a"));
    now += 61min;
    EXPECT_EQ(0, fail("a"));
}

TEST_F(Delays, TheTableIsBounded)
{
    for (int i = 0; i < 5; ++i)
        fail("first");
    for (std::size_t i = 0; i + 1 < LoginDelays::kMost; ++i)
        fail(std::to_string(i));
    EXPECT_EQ(1, left("first"));
    fail("first"); // now "0" is the oldest
    fail("one more");
    EXPECT_EQ(LoginDelays::kMost, delays.size());
    EXPECT_EQ(2, left("first"));
    for (std::size_t i = 0; i + 2 < LoginDelays::kMost; ++i)
        fail("x" + std::to_string(i));
    EXPECT_EQ(LoginDelays::kMost, delays.size());
    EXPECT_EQ(2, left("first"));
    fail("the last straw");
    EXPECT_EQ(0, left("first"));
}

} // namespace
} // namespace qvcd

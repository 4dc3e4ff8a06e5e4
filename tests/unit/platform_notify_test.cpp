#include "appliance_root.h"
#include "platform/event_queue.h"
#include "platform/log.h"
#include "platform/mqtt.h"
#include "platform/notify_bus.h"
#include "platform/subscribers.h"
#include "platform_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace qvcd {
namespace {

Notification event_of(std::string payload)
{
    Notification n;
    n.identity = "qvc";
    n.message_class = "event";
    n.event = "set";
    n.payload = std::move(payload);
    n.public_payload = "not for local subscribers";
    n.topic = "qvc set";
    return n;
}

std::string line_of(const std::string &payload)
{
    return R"({"identity":"qvc","class":"event","event":"set","payload":")" + payload +
           "\",\"topic\":\"qvc set\"}\n";
}

class Bus : public testing::Test {
  protected:
    Bus() { EXPECT_EQ(qvnotify_start(), 0); }
    ~Bus() override { qvnotify_stop(); }
};

TEST_F(Bus, OneEventIsOneLineOfJson)
{
    TestClient client = TestClient::of("notify");
    qvnotify_send_publish_message(event_of("A.B=\"x\"\\1\n2\tcaf\xc3\xa9\xff!"));
    EXPECT_EQ(client.line(), line_of(R"(A.B=\"x\"\\1\n2\tcaf)"
                                     "\xc3\xa9\xef\xbf\xbd!"));
}

// Reads along while another subscriber does not.
TEST_F(Bus, ASlowSubscriberIsDroppedTheOthersStay)
{
    const TempFolder folder;
    qv_log_start(1, false, false, folder.path("log").c_str(), false, "test");
    TestClient slow = TestClient::of("notify");
    TestClient quick = TestClient::of("notify");
    const std::string value(1000, 'x');
    int published = 0;
    for (int round = 0; round < 40; ++round) {
        for (int i = 0; i < 100; ++i, ++published)
            qvnotify_send_publish_message(event_of(value + std::to_string(published)));
        for (int i = published - 100; i < published; ++i)
            ASSERT_EQ(quick.line(), line_of(value + std::to_string(i)));
    }
    const std::string got = slow.all();
    EXPECT_LT(got.size(), static_cast<std::size_t>(published) * value.size());
    EXPECT_TRUE(got.starts_with(line_of(value + "0")));
    qv_log_stop();
    EXPECT_EQ(folder.read("log"), "notify: a subscriber is dropped, it does not read\n");
}

TEST_F(Bus, OneTooManyShutsNobodyOut)
{
    std::vector<TestClient> clients;
    for (std::size_t i = 0; i <= Subscribers::kMost; ++i) {
        clients.push_back(TestClient::of("notify"));
        qvnotify_send_publish_message(event_of(std::to_string(i)));
        EXPECT_EQ(clients.back().line(), line_of(std::to_string(i)));
    }
    EXPECT_TRUE(clients.front().all().ends_with(line_of("63")));
    EXPECT_EQ(clients[1].line(), line_of("2"));
}

TEST_F(Bus, WhoMissesEventsIsToldByTheEndOfTheStream)
{
    TestClient client = TestClient::of("notify");
    qvnotify_send_publish_message(event_of("before"));
    EXPECT_EQ(client.line(), line_of("before"));
    qvnotify_send_publish_message(event_of(std::string(std::size_t{20} << 20, 'x'))); // as many would be
    EXPECT_EQ(client.all(), "");
    TestClient again = TestClient::of("notify");
    qvnotify_send_publish_message(event_of("after"));
    EXPECT_EQ(again.line(), line_of("after"));
}

TEST_F(Bus, ASubscriberThatOnlyListensOrTalksStays)
{
    TestClient client = TestClient::of("notify");
    ASSERT_TRUE(client.say("hello?\n"));
    client.end_input();
    for (int i = 0; i < 3; ++i) {
        qvnotify_send_publish_message(event_of("A=1"));
        EXPECT_EQ(client.line(), line_of("A=1"));
    }
}

TEST_F(Bus, StopSendsWhatIsQueuedAndEndsTheStreams)
{
    TestClient client = TestClient::of("notify");
    TestClient leaver = TestClient::of("notify");
    leaver.close();
    qvnotify_send_publish_message(event_of("A=1"));
    qvnotify_stop();
    qvnotify_send_publish_message(event_of("A=2"));
    EXPECT_EQ(client.all(), line_of("A=1"));
    EXPECT_FALSE(connect_unix(qv_ipc_socket_path("notify"), std::chrono::seconds(1)));
}

TEST_F(Bus, ManyThreadsMayPublish)
{
    TestClient client = TestClient::of("notify");
    std::vector<std::thread> publishers;
    for (const char *name : {"A=", "B=", "C="})
        publishers.emplace_back([name] {
            for (int i = 0; i < 100; ++i)
                qvnotify_send_publish_message(event_of(name + std::to_string(i)));
        });
    for (std::thread &publisher : publishers)
        publisher.join();
    qvnotify_stop();
    const std::string got = client.all();
    for (const char *name : {"A=", "B=", "C="}) { // each thread's own order holds
        std::size_t at = 0;
        for (int i = 0; i < 100 && at != std::string::npos; ++i)
            at = got.find(line_of(name + std::to_string(i)), at);
        EXPECT_NE(at, std::string::npos) << name;
    }
}

TEST(MqttConfigText, Rows)
{
    using testing::Field;
    const auto is = [](std::string host, int port, std::string user, std::string password, std::string cafile,
                       std::string prefix) {
        return testing::Optional(
            testing::AllOf(Field(&MqttConfig::host, host), Field(&MqttConfig::port, port),
                           Field(&MqttConfig::user, user), Field(&MqttConfig::password, password),
                           Field(&MqttConfig::cafile, cafile), Field(&MqttConfig::prefix, prefix)));
    };
    EXPECT_THAT(parse_mqtt_config("# comment\r\n\n host = b \r\ncafile=/etc/ca.pem\r\n"),
                is("b", 8883, "", "", "/etc/ca.pem", "qv"));
    EXPECT_THAT(parse_mqtt_config("cafile=/c\nport=1\nhost=b\nuser=u\npassword= p=#q \nprefix=site/x\nodd\n"),
                is("b", 1, "u", "p=#q", "/c", "site/x"));
    const auto takes_commands = [](const std::string &text) {
        return parse_mqtt_config("host=b\ncommands=yes\n" + text)->commands;
    };
    for (const char *text :
         {"cafile=/c\n", "insecure=yes\n", "cafile=/c\nid=enc-1\ncertfile=/x\nkeyfile=/k\n"})
        EXPECT_TRUE(takes_commands(text)) << text;
    for (const char *text : {"", "insecure=no\n", "cafile=/c\nid=a/b\n", "cafile=/c\nid=a#\n",
                             "cafile=/c\nid=a b\n", "cafile=/c\nkeyfile=/k\n", "cafile=/c\ncommands=no\n"})
        EXPECT_FALSE(takes_commands(text)) << text;
    for (const char *text : {"user=u\n", "host=\n", "host=b\nport=0\n", "host=b\nport=65536\n", "#host=b\n"})
        EXPECT_EQ(parse_mqtt_config(text), std::nullopt) << text;
}

TEST(MqttConfigText, TheLogNeverShowsAValue)
{
    const TempFolder folder;
    qv_log_start(4, false, false, folder.path("log").c_str(), false, "test");
    parse_mqtt_config("host=b\npasswort=topsecret\npassword=topsecret\nport=topsecret\n");
    qv_log_stop();
    EXPECT_NE(folder.read("log").find("unknown key passwort"), std::string::npos);
    EXPECT_EQ(folder.read("log").find("topsecret"), std::string::npos);
}

TEST(EventPatterns, FitNamesAndGroupsAboveThem)
{
    const std::string hostile = std::string(500, 'a') + ".b";
    const struct {
        std::string pattern;
        std::vector<std::string> fits, others;
    } cases[] = {
        {"A.b", {"A.b", "A.b.c"}, {"A", "A.bc", "xA.b", ""}},
        {"A.*", {"A.b", "A.b.c", "A."}, {"A", "B.c"}},
        {"*.po?t", {"A.port", "A.port.x"}, {"A.b.port", "A.pot", "A.ports", "A.po.t"}},
        {"*a*b*.c", {"ab.c", "xaybz.c.d"}, {"a.b.c", "ba.c", "ab"}},
        {"", {"", ".x"}, {"A"}},
        {"*", {"", "A", "A.b"}, {}},
        {"**?", {"A"}, {"", ".A"}},
        {"*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*c", {}, {hostile}},
    };
    for (const auto &c : cases) {
        for (const std::string &name : c.fits)
            EXPECT_TRUE(fits_pattern(c.pattern, name)) << c.pattern << " " << name;
        for (const std::string &name : c.others)
            EXPECT_FALSE(fits_pattern(c.pattern, name)) << c.pattern << " " << name;
    }
}

} // namespace
} // namespace qvcd

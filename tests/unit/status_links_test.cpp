#include "status/stream_links.h"
#include "status/stream_urls.h"
#include "status_fixture.h"

#include <gmock/gmock.h>

namespace qvcd {
namespace {

class StreamUrlsTest : public StatusTest {};
class StreamLinksTest : public StatusTest {};

LinkFacts eth0()
{
    LinkFacts facts;
    facts.address = "10.0.0.5";
    facts.interface = "eth0";
    return facts;
}

LinkFacts with(LinkFacts facts, int LinkFacts::*member, int value)
{
    facts.*member = value;
    return facts;
}

LinkFacts wlan0()
{
    LinkFacts facts = eth0();
    facts.interface = "wlan0";
    return facts;
}

LinkFacts bonded()
{
    LinkFacts facts = eth0();
    facts.bonded = true;
    return facts;
}

LinkFacts http(int port, bool ssl)
{
    LinkFacts facts = with(eth0(), &LinkFacts::http_port, port);
    facts.ssl = ssl;
    return facts;
}

Values as_values(const std::vector<StreamLink> &links)
{
    Values values;
    for (const StreamLink &link : links)
        values.emplace_back(link.kind, link.url);
    return values;
}

// Puts a common prefix in front of the names.
Values below(const std::string &prefix, const Values &values)
{
    Values full;
    for (const auto &[name, value] : values)
        full.emplace_back(join_name(prefix, name), value);
    return full;
}

struct ModeCase {
    std::string mode;
    Values settings;
    LinkFacts facts;
    Values links;
};

void expect_links(const std::vector<ModeCase> &cases)
{
    for (const ModeCase &c : cases) {
        only_values(c.settings);
        const StreamMode *mode = find_stream_mode(c.mode);
        ASSERT_TRUE(mode) << c.mode;
        EXPECT_EQ(as_values(mode->build(c.facts)), c.links) << c.mode << testing::PrintToString(c.settings);
    }
}

TEST_F(StreamUrlsTest, RtspServers)
{
    const std::string rtsp = "VideoStreamer.Settings.1.RTSP";
    const std::string restream = "StreamingServer.Settings.RTSP";
    const Values access{{"Authentication.enable", "1"},
                        {"Authentication.username", "me"},
                        {"Authentication.password", "pw"},
                        {"RTPOverHTTP.enable", "1"},
                        {"RTP.audio_only", "1"}};
    Values tunnelled = below(rtsp, access);
    tunnelled.emplace_back("VideoStreamer.Configuration.HTTP.port", "8088");
    Values restreamed = below(restream, access);
    restreamed.emplace_back(restream + ".port", "8555");
    restreamed.emplace_back(restream + ".RTP.streamname", "again");
    expect_links({
        {"RTSP", {}, eth0(), {{"rtsp", "rtsp://10.0.0.5/stream1"}}},
        {"RTSP", {}, with(eth0(), &LinkFacts::rtsp_port, 8554), {{"rtsp", "rtsp://10.0.0.5:8554/stream1"}}},
        {"RTSP",
         below(rtsp, access),
         eth0(),
         {{"rtsp", "rtsp://10.0.0.5/stream1"},
          {"rtspauth", "rtsp://me:pw@10.0.0.5/stream1"},
          {"rtsphttp", "rtsp://10.0.0.5:8080/stream1"},
          {"rtspaudio", "rtsp://10.0.0.5/stream1"}}},
        {"RTSP",
         tunnelled,
         with(eth0(), &LinkFacts::rtsp_port, 8554),
         {{"rtsp", "rtsp://10.0.0.5:8554/stream1"},
          {"rtspauth", "rtsp://me:pw@10.0.0.5:8554/stream1"},
          {"rtsphttp", "rtsp://10.0.0.5:8088/stream1"},
          {"rtspaudio", "rtsp://10.0.0.5:8554/stream1"}}},
        {"RTSP",
         {{rtsp + ".Authentication.enable", "1"}},
         eth0(),
         {{"rtsp", "rtsp://10.0.0.5/stream1"}, {"rtspauth", "rtsp://:@10.0.0.5/stream1"}}},
        {"RTSP", {{rtsp + ".Authentication.enable", "yes"}}, eth0(), {{"rtsp", "rtsp://10.0.0.5/stream1"}}},
        {"StreamingServer", restreamed, eth0(), {}},
        {"StreamingServer", {}, wlan0(), {{"rtsp", "rtsp://10.0.0.5/stream1"}}},
        {"StreamingServer",
         restreamed,
         wlan0(),
         {{"rtsp", "rtsp://10.0.0.5:8555/again"},
          {"rtspauth", "rtsp://me:pw@10.0.0.5:8555/again"},
          {"rtspaudio", "rtsp://10.0.0.5:8555/again"}}},
        {"MJPEG", {}, eth0(), {{"rtsp", "rtsp://10.0.0.5/mjpeg1"}}},
    });
}

TEST_F(StreamUrlsTest, HttpBase)
{
    const struct {
        int port;
        bool ssl;
        std::string base;
    } cases[] = {
        {80, false, "http://10.0.0.5"},        {443, true, "https://10.0.0.5"},
        {443, false, "http://10.0.0.5:443"},   {80, true, "https://10.0.0.5:80"},
        {8080, false, "http://10.0.0.5:8080"},
    };
    for (const auto &c : cases) {
        expect_links(
            {{"RTPPush",
              {},
              http(c.port, c.ssl),
              {{"rtsp", "rtsp://10.0.0.5/stream1"},
               {"rtppush", c.base + "/stream1.sdp"},
               {"rtppush1", c.base + "/stream1_XXXX.sdp"}}},
             {"HttpLive", {}, http(c.port, c.ssl), {{"httplive", c.base + "/httplive/stream.m3u8"}}}});
    }
}

TEST_F(StreamUrlsTest, TransportStreams)
{
    const Values target{{"host", "239.1.1.1"}, {"port", "5004"}};
    const Values server{{"Server.enable", "1"}, {"Server.port", "5001"}};
    const std::string streamer = "VideoStreamer.Settings.1";
    const auto settings = [&](const std::string &group, Values values, const std::string &protocol,
                              const Values &more = {}) {
        values.emplace_back("protocol", protocol);
        values.insert(values.end(), more.begin(), more.end());
        return below(streamer + group, values);
    };
    Values direct = settings(".SkylarkDirect.TS", target, "rtp", server);
    direct.emplace_back(streamer + ".SkylarkDirect.Server.host", "relay");
    expect_links({
        {"TS", {}, eth0(), {{"ts", "udp://@:0"}}},
        {"TS", settings(".TS", target, "tcp"), eth0(), {{"ts", "tcp://@239.1.1.1:5004"}}},
        {"TS", settings(".TS", target, "udp"), eth0(), {{"ts", "udp://@239.1.1.1:5004"}}},
        {"TS", settings(".TS", target, "multicast"), eth0(), {{"ts", "udp://@239.1.1.1:5004"}}},
        {"TS", settings(".TS", target, "rtp"), eth0(), {}},
        {"TS", settings(".TS", target, "rtp", server), eth0(), {}},
        {"TS", settings(".TS", target, "rtp", server), bonded(), {{"tspull", "tcp://10.0.0.5:5001"}}},
        {"TS",
         settings(".TS", target, "udp", {{"Server.enable", "1"}}),
         bonded(),
         {{"ts", "udp://@239.1.1.1:5004"}, {"tspull", "tcp://10.0.0.5:5000"}}},
        {"TS", settings(".TS", target, "udp"), bonded(), {{"ts", "udp://@239.1.1.1:5004"}}},
        {"MTS", settings(".MTS", target, "tcp"), eth0(), {{"ts", "tcp://@239.1.1.1:5004"}}},
        {"MTS",
         settings(".MTS", target, "rtp", {{"rtp_enable", "1"}}),
         eth0(),
         {{"rtsp", "rtsp://10.0.0.5/stream1"}}},
        {"SkylarkDirect", {}, eth0(), {{"ts", "udp://@:0"}}},
        {"SkylarkDirect", direct, eth0(), {{"tspull", "tcp://relay:5001"}}},
    });
}

TEST_F(StreamUrlsTest, PushedElsewhere)
{
    const std::string streamer = "VideoStreamer.Settings.1";
    expect_links({
        {"ZiXi", {}, eth0(), {{"zixi", "zixi://:2088/"}}},
        {"ZiXi",
         below(streamer + ".ZiXi", {{"host", "hub"}, {"port", "77"}, {"channel", "c1"}}),
         eth0(),
         {{"zixi", "zixi://hub:77/c1"}}},
        {"Announce", {}, eth0(), {{"rtsp", "rtsp://10.0.0.5/stream1"}}},
        {"Announce",
         below(streamer + ".Announce", {{"host", "hub"}, {"port", "554"}, {"file", "f.sdp"}}),
         eth0(),
         {{"rtsp", "rtsp://10.0.0.5/stream1"}, {"rtspannounce", "rtsp://hub:554/f.sdp"}}},
        {"RTMP", {}, eth0(), {{"rtmp", "rtmp://10.0.0.5:1935/live/stream1"}}},
        {"RTMP",
         below(streamer + ".RTMP", {{"url", "rtmp://hub/app"}, {"stream", "key=1"}}),
         eth0(),
         {{"rtmp", "rtmp://10.0.0.5:1935/live/stream1"}, {"rtmppublish", "rtmp://hub/app/key=1"}}},
        {"QVS", {}, eth0(), {{"qvs", "udp://:9710"}}},
        {"QVS",
         below(streamer + ".QVS", {{"host", "hub"}, {"port", "1"}, {"protocol", "tcp"}}),
         eth0(),
         {{"qvs", "tcp://hub:1"}}},
        {"Wowza", {}, eth0(), {{"wowza", "rtmp://:1935/live/"}}},
        {"Wowza",
         below(streamer + ".Wowza",
               {{"host", "hub"}, {"port", "x"}, {"application", "app"}, {"stream", "s"}}),
         eth0(),
         {{"wowza", "rtmp://hub:1935/app/s"}}},
    });
}

TEST_F(StreamUrlsTest, StreamingPlatforms)
{
    const std::string chosen = "VideoStreamer.Settings.1.StreamingPlatforms";
    const std::string bases = "VideoStreamer.Configuration.StreamingPlatforms";
    const auto on = [&](const std::string &provider, Values more = {}) {
        more.emplace_back(chosen + ".provider", provider);
        return more;
    };
    const struct {
        Values settings;
        Values links;
    } cases[] = {
        {{}, {}},
        {on("Elsewhere"), {}},
        {on("NewLivestream"), {{"livestream", "https://newlivestream.example.com"}}},
        {on("NewLivestream", {{bases + ".NewLivestream.base_url", "https://b"}}),
         {{"livestream", "https://b"}}},
        {on("NewLivestream", {{chosen + ".NewLivestream.event_url", "https://e"}}),
         {{"livestream", "https://e"}}},
        {on("Ustream", {{chosen + ".Ustream.channel_url", "https://c"}}), {{"ustream", "https://c"}}},
        {on("Ustream"), {{"ustream", "https://ustream.example.com"}}},
        {on("Livestream"), {{"livestream", "https://livestream.example.com/"}}},
        {on("Livestream",
            {{chosen + ".Livestream.channel", "c"}, {bases + ".Livestream.base_url", "https://l"}}),
         {{"livestream", "https://l/c"}}},
        {on("Niconico"), {{"niconico", "https://niconico.example.com"}}},
    };
    for (const auto &c : cases)
        expect_links({{"StreamingPlatforms", c.settings, eth0(), c.links}});
}

TEST_F(StreamUrlsTest, QuickView)
{
    LinkFacts facts = with(http(8080, false), &LinkFacts::rtsp_port, 8554);
    facts.serial_number = "17";
    EXPECT_EQ(as_values(setup_quickview_links(eth0())), (Values{{"rtsp", "rtsp://10.0.0.5/quickview"}}));
    set_values({{"VideoStreamer.Settings.Quickview.push", "1"}});
    EXPECT_EQ(as_values(setup_quickview_links(facts)),
              (Values{{"rtsp", "rtsp://10.0.0.5:8554/quickview"},
                      {"rtppush", "http://10.0.0.5:8080/quickview.sdp"},
                      {"rtppush1", "http://10.0.0.5:8080/quickview_17.sdp"}}));
}

TEST_F(StreamUrlsTest, ModesThatPublishNothing)
{
    for (const char *mode : {"Disabled", "rtsp", "", "ASI"})
        EXPECT_FALSE(find_stream_mode(mode)) << mode;
}

// This test program runs where no wlan0 exists, and where eth0 may.
TEST_F(StreamLinksTest, StaleLinksGo)
{
    set_values({{"VideoStreamer.Settings.1.mode", "Disabled"},
                {"Links.1.Eth0.rtsp", "rtsp://old"},
                {"Links.1.Wlan0.ts", "udp://old"},
                {"Links.Quickview.Eth0.rtsp", "rtsp://old"},
                {"Links.1.Other", "stays"}});
    metaDB.set("Links.1.Eth0.rtsp.attr", "rtsp");
    metaDB.set("Links.Quickview.Eth0.rtsp.attr", "rtsp");
    EXPECT_EQ(read_with(links_rfunc, "Links", nullptr), "0");
    for (const char *name : {"Links.1.Eth0", "Links.1.Wlan0", "Links.Quickview"}) {
        EXPECT_FALSE(hdfDB.find(name)) << name;
        EXPECT_FALSE(metaDB.find(name)) << name;
    }
    EXPECT_EQ(hdfDB.get("Links.1.Other"), "stays");
}

TEST_F(StreamLinksTest, QuickViewGoesWithZixi)
{
    set_values({{"VideoStreamer.Settings.1.mode", "ZiXi"},
                {"VideoStreamer.Settings.Quickview.enable", "1"},
                {"Links.Quickview.Eth0.rtsp", "rtsp://old"}});
    read_with(links_rfunc, "Links", nullptr);
    EXPECT_FALSE(hdfDB.find("Links.Quickview"));
}

TEST_F(StreamLinksTest, RootsThatAreNoNames)
{
    for (const char *root : {static_cast<const char *>(nullptr), "", "a..b", "a b"})
        EXPECT_EQ(read_with(links_rfunc, root, nullptr), "0") << (root ? root : "null");
}

} // namespace
} // namespace qvcd

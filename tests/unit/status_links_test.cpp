#include "base/text.h"
#include "status/stream_links.h"
#include "status/stream_urls.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class StreamUrlsTest : public StatusTest {};

constexpr char kStreamer[] = "VideoStreamer.Settings.1";

// "name=value" words; a name that begins with a dot is below kStreamer.
Values values_of(const std::string &words)
{
    Values values;
    for (const std::string &word : split_words(words, " ")) {
        const std::size_t equals = word.find('=');
        values.emplace_back((word[0] == '.' ? kStreamer : "") + word.substr(0, equals),
                            word.substr(equals + 1));
    }
    return values;
}

// The same the other way round.
std::string words_of(const StreamLinks &links)
{
    std::string words;
    for (const StreamLink &link : links) {
        if (link.url.valid)
            words += (words.empty() ? "" : " ") + std::string(link.kind) + "=" + link.url.text;
    }
    return words;
}

LinkFacts on(std::string_view interface, int rtsp_port = 554)
{
    LinkFacts facts;
    facts.address = "10.0.0.5";
    facts.interface = interface;
    facts.rtsp_port = rtsp_port;
    return facts;
}

LinkFacts bonded()
{
    LinkFacts facts = on("eth0");
    facts.bonded = true;
    return facts;
}

LinkFacts http(std::optional<int> port, bool ssl)
{
    LinkFacts facts = on("eth0");
    facts.http_port = port;
    facts.ssl = ssl;
    return facts;
}

struct ModeCase {
    const char *mode;
    std::string settings, links;
    LinkFacts facts = on("eth0");
};

void expect_links(const std::vector<ModeCase> &cases)
{
    for (const ModeCase &c : cases) {
        only_values(values_of(c.settings));
        const StreamMode *mode = find_stream_mode(c.mode);
        ASSERT_TRUE(mode) << c.mode;
        EXPECT_EQ(words_of(mode->build(c.facts)), c.links) << c.mode << " " << c.settings;
    }
}

TEST_F(StreamUrlsTest, RtspServers)
{
    const std::string access =
        ".RTSP.Authentication.enable=1 .RTSP.Authentication.username=me "
        ".RTSP.Authentication.password=pw .RTSP.RTPOverHTTP.enable=1 .RTSP.RTP.audio_only=1";
    const std::string again = "StreamingServer.Settings.RTSP.";
    const std::string own = again + "port=8555 " + again + "RTP.streamname=again " + again +
                            "Authentication.enable=1 " + again + "Authentication.username=a:b+@/%\xc3\xa9~";
    expect_links({
        {"RTSP", access,
         "rtsp=rtsp://10.0.0.5/stream1 rtspauth=rtsp://me:pw@10.0.0.5/stream1 "
         "rtsphttp=rtsp://10.0.0.5:8080/stream1 rtspaudio=rtsp://10.0.0.5/stream1"},
        {"RTSP", ".RTSP.RTPOverHTTP.enable=1 VideoStreamer.Configuration.HTTP.port=70000000000",
         "rtsp=rtsp://10.0.0.5:8554/stream1", on("eth0", 8554)},
        {"RTSP", ".RTSP.Authentication.enable=yes", "rtsp=rtsp://10.0.0.5/stream1"},
        {"StreamingServer", own, ""},
        {"StreamingServer", "", "rtsp=rtsp://10.0.0.5/stream1", on("wlan0")},
        {"StreamingServer", own,
         "rtsp=rtsp://10.0.0.5:8555/again rtspauth=rtsp://a%3Ab%2B%40%2F%25%C3%A9%7E:@10.0.0.5:8555/again",
         on("wlan0")},
        {"MJPEG", "", "rtsp=rtsp://10.0.0.5/mjpeg1"},
    });
}

TEST_F(StreamUrlsTest, HttpServers)
{
    const std::string rtsp = "rtsp=rtsp://10.0.0.5/stream1";
    const struct {
        std::optional<int> port;
        bool ssl;
        const char *base;
    } servers[] = {{80, false, "http://10.0.0.5"},
                   {443, true, "https://10.0.0.5"},
                   {443, false, "http://10.0.0.5:443"},
                   {80, true, "https://10.0.0.5:80"}};
    for (const auto &[port, ssl, base] : servers)
        expect_links(
            {{"HttpLive", "", std::string("httplive=") + base + "/httplive/stream.m3u8", http(port, ssl)}});
    expect_links(
        {{"RTPPush", "",
          rtsp + " rtppush=http://10.0.0.5:8080/stream1.sdp rtppush1=http://10.0.0.5:8080/stream1_XXXX.sdp",
          http(8080, false)},
         {"RTPPush", "", rtsp, http({}, false)},
         {"HttpLive", "", "", http({}, false)}});

    LinkFacts quick = http(8080, false);
    quick.serial_number = "17";
    only_values({});
    EXPECT_EQ(words_of(quickview_links(quick)), "rtsp=rtsp://10.0.0.5/quickview");
    set_values({{"VideoStreamer.Settings.Quickview.push", "1"}});
    EXPECT_EQ(words_of(quickview_links(quick)),
              "rtsp=rtsp://10.0.0.5/quickview rtppush=http://10.0.0.5:8080/quickview.sdp "
              "rtppush1=http://10.0.0.5:8080/quickview_17.sdp");
}

TEST_F(StreamUrlsTest, TransportStreams)
{
    const std::string target = ".TS.host=239.1.1.1 .TS.port=5004 .TS.protocol=";
    const std::string server = " .TS.Server.enable=1";
    const std::string direct = ".SkylarkDirect.TS.protocol=rtp .SkylarkDirect.TS.Server.enable=1 "
                               ".SkylarkDirect.TS.Server.port=5001 .SkylarkDirect.Server.host=relay";
    expect_links({
        {"TS", "", ""},
        {"TS", target + "tcp", "ts=tcp://@239.1.1.1:5004"},
        {"TS", target + "multicast", "ts=udp://@239.1.1.1:5004"},
        {"TS", target + "rtp" + server, ""},
        {"TS", target + "rtp" + server, "tspull=tcp://10.0.0.5:5000", bonded()},
        {"TS", target + "udp" + server + " .TS.Server.port=0", "ts=udp://@239.1.1.1:5004", bonded()},
        {"TS", ".TS.host=h .TS.port=4294967376", ""},
        {"MTS", ".MTS.host=h .MTS.port=1 .MTS.protocol=tcp", "ts=tcp://@h:1"},
        {"MTS", ".MTS.protocol=rtp .MTS.rtp_enable=1", "rtsp=rtsp://10.0.0.5/stream1"},
        {"SkylarkDirect", ".SkylarkDirect.TS.port=7", "ts=udp://@:7"},
        {"SkylarkDirect", direct, "tspull=tcp://relay:5001"},
    });
}

TEST_F(StreamUrlsTest, PushedElsewhere)
{
    const std::string platform = ".StreamingPlatforms.provider=";
    const std::string base = " VideoStreamer.Configuration.StreamingPlatforms.";
    expect_links({
        {"ZiXi", "", "zixi=zixi://:2088/"},
        {"ZiXi", ".ZiXi.host=hub .ZiXi.port=77 .ZiXi.channel=c1", "zixi=zixi://hub:77/c1"},
        {"ZiXi", ".ZiXi.port=-1", ""},
        {"Announce", "", "rtsp=rtsp://10.0.0.5/stream1"},
        {"Announce", ".Announce.host=hub .Announce.port=554 .Announce.file=f.sdp",
         "rtsp=rtsp://10.0.0.5/stream1 rtspannounce=rtsp://hub:554/f.sdp"},
        {"RTMP", "", "rtmp=rtmp://10.0.0.5:1935/live/stream1"},
        {"RTMP", ".RTMP.url=rtmp://hub/app .RTMP.stream=key=1",
         "rtmp=rtmp://10.0.0.5:1935/live/stream1 rtmppublish=rtmp://hub/app/key=1"},
        {"QVS", "", "qvs=udp://:9710"},
        {"Wowza", ".Wowza.host=hub .Wowza.port=x .Wowza.stream=s", "wowza=rtmp://hub:1935/live/s"},
        {"StreamingPlatforms", platform + "Elsewhere", ""},
        {"StreamingPlatforms", platform + "NewLivestream" + base + "NewLivestream.base_url=https://b",
         "livestream=https://b"},
        {"StreamingPlatforms",
         platform + "NewLivestream .StreamingPlatforms.NewLivestream.event_url=https://e",
         "livestream=https://e"},
        {"StreamingPlatforms", platform + "Livestream .StreamingPlatforms.Livestream.channel=c",
         "livestream=https://livestream.example.com/c"},
        {"StreamingPlatforms", platform + "Niconico", "niconico=https://niconico.example.com"},
    });
    for (const char *mode : {"Disabled", "rtsp", ""})
        EXPECT_FALSE(find_stream_mode(mode)) << mode;
}

class StreamLinksTest : public StatusTest {
  protected:
    static bool publish(const std::string &settings, bool with_wlan0 = false)
    {
        InterfaceSnapshot network{{{.index = 2, .name = "eth0"}, {.index = 3, .name = "ppp0"}},
                                  {{2, "10.0.0.5", {}, 24}}};
        if (with_wlan0) {
            network.links.push_back({.index = 4, .name = "wlan0"});
            network.addresses.push_back({4, "10.0.1.5", {}, 24});
        }
        Request request(0xffff);
        set_values(values_of(settings));
        return publish_stream_links(request, "Links", network);
    }
    static std::vector<std::string> published()
    {
        return hdfutils_names(hdfDB.find("Links"), "Links", hdfutils_check_endnode);
    }
};

TEST_F(StreamLinksTest, LinksFollowInterfacesAndModes)
{
    const struct {
        const char *settings;
        bool wlan0;
        std::vector<std::string> names;
    } steps[] = {
        {".mode=Disabled VideoStreamer.Settings.Quickview.enable=1", false, {"Links.Quickview.Eth0.rtsp"}},
        {".mode=RTSP",
         true,
         {"Links.1.Eth0.rtsp", "Links.1.Wlan0.rtsp", "Links.Quickview.Eth0.rtsp",
          "Links.Quickview.Wlan0.rtsp"}},
        {".mode=ZiXi", false, {"Links.1.Eth0.zixi"}},
        {".mode=TS .TS.port=70000000000 VideoStreamer.Settings.Quickview.enable=0", false, {}},
    };
    set_values({{"Links.1.Other", "stays"}});
    for (const auto &step : steps) {
        EXPECT_EQ(publish(step.settings, step.wlan0), !step.names.empty()) << step.settings;
        std::vector<std::string> names = published();
        EXPECT_EQ(std::erase(names, "Links.1.Other"), 1U);
        EXPECT_EQ(names, step.names) << step.settings;
    }
    EXPECT_FALSE(metaDB.find("Links")) << "all of it was made for links";
    hdfDB.remove("Links.1.Other");
    publish(".mode=RTSP");
    publish(".mode=Disabled");
    EXPECT_FALSE(hdfDB.find("Links")) << "an empty group looks like an API";
    for (const char *root : {static_cast<const char *>(nullptr), "", "a..b", "a b"})
        EXPECT_EQ(read_with(links_rfunc, root, nullptr), "0") << or_null(root);
}

TEST_F(StreamLinksTest, WhatTheModelSaysOfLinksStays)
{
    model("Links: perm = 4444\nLinks.1.Eth0: perm = 4400\nLinks.1.Eth0.rtsp: help = by the model");
    for (const char *settings : {".mode=RTSP .RTSP.RTP.audio_only=1", ".mode=Disabled", ".mode=RTSP"}) {
        publish(settings);
        EXPECT_EQ(meta_get_perm("Links.1.Eth0.rtsp"), 0x4400U) << settings;
        EXPECT_EQ(meta_get("Links.1.Eth0.rtsp", "help"), "by the model") << settings;
    }
    EXPECT_EQ(meta_get_perm("Links.1.Eth0.rtspaudio"), 0x4400U);
    publish(".mode=Disabled");
    EXPECT_FALSE(metaDB.find("Links.1.Eth0.rtspaudio"));
}

// Who may not read the password, or what else in a link is secret, may not read the link.
TEST_F(StreamLinksTest, SecretsAreGuarded)
{
    const struct {
        const char *group_perm, *secret_perm, *is_private;
        unsigned perm;
    } cases[] = {
        {"4444", "7700", "", 0x4400}, {"4400", "7770", "", 0x4400}, {"4444", "7774", "true", 0x4444}};
    for (const auto &c : cases) {
        hdfdb_destroy();
        hdfdb_init();
        metaDB.set("Links.perm", c.group_perm);
        for (const char *secret : {".RTSP.Authentication.password", ".RTMP.stream"}) {
            metaDB.set(kStreamer + std::string(secret) + ".type", "blank,password 4 63");
            metaDB.set(kStreamer + std::string(secret) + ".perm", c.secret_perm);
            metaDB.set(kStreamer + std::string(secret) + ".private", c.is_private);
        }
        set_values({{kStreamer + std::string(".RTSP.Authentication.password"), "p@ s"}});
        publish(".mode=RTSP .RTSP.Authentication.enable=1 .RTMP.stream=key .RTMP.url=u");
        EXPECT_EQ(hdfDB.get("Links.1.Eth0.rtspauth"), "rtsp://:p%40%20s@10.0.0.5/stream1");
        for (const char *link : {"Links.1.Eth0.rtspauth", "Links.1.Eth0.rtmppublish"}) {
            if (!hdfDB.get(link))
                publish(".mode=RTMP");
            ASSERT_TRUE(hdfDB.get(link)) << link;
            EXPECT_EQ(meta_get_perm(link), c.perm) << link;
            EXPECT_EQ(meta_is_hidden(0x0fff, link), *c.is_private != '\0') << link;
            EXPECT_TRUE(meta_is_password(link)) << "its value is not for logs";
        }
        EXPECT_EQ(meta_get_perm("Links.1.Eth0.rtmp"), std::stoul(c.group_perm, nullptr, 16));
        EXPECT_FALSE(meta_is_password("Links.1.Eth0.rtmp"));
    }
}

} // namespace
} // namespace qvcd

#include "status/stream_urls.h"

#include "base/lookup.h"
#include "status/setting_port.h"
#include "store/database.h"

namespace qvcd {

namespace {

constexpr int kRtspPort = 554;
constexpr int kRtmpPort = 1935;

// ":port"; nothing for the usual port of the scheme.
UrlText port_part(std::optional<int> port, int usual = 0)
{
    UrlText part = port == usual ? "" : ":" + std::to_string(port.value_or(0));
    part.valid = port && *port > 0;
    return part;
}

// As the user or the password of a URL (RFC 3986, 3.2.1), where "+" is no blank.
UrlText as_userinfo(UrlText part)
{
    std::string escaped = url_escape(part.text);
    for (std::size_t at = escaped.find('+'); at != std::string::npos; at = escaped.find('+', at))
        escaped.replace(at, 1, "%20");
    part.text = escaped;
    return part;
}

// Settings below one name.
class Settings {
  public:
    explicit Settings(std::string prefix) : prefix_(std::move(prefix)) {}

    UrlText text(std::string_view name, std::string_view fallback = "") const
    {
        return setting_text(join_name(prefix_, name), fallback);
    }
    UrlText port(std::string_view name, int fallback) const
    {
        return port_part(setting_port(join_name(prefix_, name), fallback));
    }
    UrlText endpoint(int fallback = 0) const { return text("host") + port("port", fallback); }
    bool on(std::string_view name) const { return hdfDB.get_int(join_name(prefix_, name), 0) != 0; }

  private:
    std::string prefix_;
};

UrlText rtsp_server(const LinkFacts &facts)
{
    return facts.address + port_part(facts.rtsp_port, kRtspPort);
}

StreamLink rtsp_link(const LinkFacts &facts, const UrlText &path)
{
    return {"rtsp", "rtsp://" + rtsp_server(facts) + "/" + path};
}

UrlText http_server(const LinkFacts &facts)
{
    return (facts.ssl ? "https://" : "http://") + facts.address +
           port_part(facts.http_port, facts.ssl ? 443 : 80);
}

void add_push_links(StreamLinks &links, const LinkFacts &facts, const UrlText &stream)
{
    const UrlText base = http_server(facts) + "/" + stream;
    links.push_back({"rtppush", base + ".sdp"});
    links.push_back({"rtppush1", base + "_" + facts.serial_number + ".sdp"});
}

// The links of an RTSP server; a `tunnel` (RTP over HTTP) is the server with another port.
StreamLinks rtsp_links(const Settings &rtsp, const UrlText &server, const UrlText &stream,
                       const std::optional<UrlText> &tunnel = {})
{
    const UrlText target = server + "/" + stream;
    StreamLinks links{{"rtsp", "rtsp://" + target}};
    if (rtsp.on("Authentication.enable"))
        links.push_back({"rtspauth", "rtsp://" + as_userinfo(rtsp.text("Authentication.username")) + ":" +
                                         as_userinfo(rtsp.text("Authentication.password")) + "@" + target});
    if (tunnel)
        links.push_back({"rtsphttp", "rtsp://" + *tunnel + "/" + stream});
    if (rtsp.on("RTP.audio_only"))
        links.push_back({"rtspaudio", "rtsp://" + target});
    return links;
}

StreamLinks rtsp_mode(const LinkFacts &facts)
{
    const Settings rtsp("VideoStreamer.Settings.1.RTSP");
    std::optional<UrlText> tunnel;
    if (rtsp.on("RTPOverHTTP.enable"))
        tunnel = facts.address + Settings("VideoStreamer.Configuration.HTTP").port("port", 8080);
    return rtsp_links(rtsp, rtsp_server(facts), facts.stream_name, tunnel);
}

// The restreaming server listens on the wireless side only, with a port and a stream of its own.
StreamLinks streaming_server_mode(const LinkFacts &facts)
{
    if (facts.interface != "wlan0")
        return {};
    LinkFacts own = facts;
    own.rtsp_port = setting_port("StreamingServer.Settings.RTSP.port", kRtspPort);
    const Settings rtsp("StreamingServer.Settings.RTSP");
    return rtsp_links(rtsp, rtsp_server(own), rtsp.text("RTP.streamname", "stream1"));
}

StreamLinks rtppush_mode(const LinkFacts &facts)
{
    StreamLinks links{rtsp_link(facts, facts.stream_name)};
    add_push_links(links, facts, facts.stream_name);
    return links;
}

// None for an unknown protocol.
StreamLinks transport_stream_links(const Settings &ts)
{
    const std::string protocol = ts.text("protocol", "udp").text;
    if (protocol != "tcp" && protocol != "udp" && protocol != "multicast")
        return {};
    return {{"ts", (protocol == "tcp" ? "tcp://@" : "udp://@") + ts.endpoint()}};
}

void add_pull_link(StreamLinks &links, const Settings &ts, const UrlText &host)
{
    if (ts.on("Server.enable"))
        links.push_back({"tspull", "tcp://" + host + ts.port("Server.port", 5000)});
}

StreamLinks ts_mode(const LinkFacts &facts)
{
    const Settings ts("VideoStreamer.Settings.1.TS");
    StreamLinks links = transport_stream_links(ts);
    if (facts.bonded)
        add_pull_link(links, ts, facts.address);
    return links;
}

StreamLinks skylark_direct_mode(const LinkFacts &)
{
    const Settings ts("VideoStreamer.Settings.1.SkylarkDirect.TS");
    StreamLinks links = transport_stream_links(ts);
    add_pull_link(links, ts, setting_text("VideoStreamer.Settings.1.SkylarkDirect.Server.host", ""));
    return links;
}

StreamLinks mts_mode(const LinkFacts &facts)
{
    const Settings mts("VideoStreamer.Settings.1.MTS");
    StreamLinks links = transport_stream_links(mts);
    if (mts.on("rtp_enable"))
        links.push_back(rtsp_link(facts, facts.stream_name));
    return links;
}

StreamLinks zixi_mode(const LinkFacts &)
{
    const Settings zixi("VideoStreamer.Settings.1.ZiXi");
    return {{"zixi", "zixi://" + zixi.endpoint(2088) + "/" + zixi.text("channel")}};
}

StreamLinks httplive_mode(const LinkFacts &facts)
{
    return {{"httplive", http_server(facts) + "/httplive/stream.m3u8"}};
}

// A platform's address: the setting `own_url`, where the platform has one, before the platform's fixed base.
struct Platform {
    std::string_view name;
    std::string_view kind;
    std::string_view base;
    std::string_view own_url;  ///< setting of the platform; empty: none
    std::string_view own_path; ///< setting that follows the base and a "/"; empty: none
};

constexpr Platform kPlatforms[] = {
    {"NewLivestream", "livestream", "https://newlivestream.example.com", "event_url", ""},
    {"Ustream", "ustream", "https://ustream.example.com", "channel_url", ""},
    {"Livestream", "livestream", "https://livestream.example.com", "", "channel"},
    {"Niconico", "niconico", "https://niconico.example.com", "", ""},
};

StreamLinks streaming_platforms_mode(const LinkFacts &)
{
    const std::string chosen = "VideoStreamer.Settings.1.StreamingPlatforms.";
    const Platform *platform = find_row(kPlatforms, hdfDB.get_or(chosen + "provider", ""));
    if (!platform)
        return {};
    const std::string name(platform->name);
    const Settings settings(chosen + name);
    const UrlText base =
        setting_text("VideoStreamer.Configuration.StreamingPlatforms." + name + ".base_url", platform->base);
    if (!platform->own_path.empty())
        return {{platform->kind, base + "/" + settings.text(platform->own_path)}};
    const UrlText own = platform->own_url.empty() ? "" : settings.text(platform->own_url);
    return {{platform->kind, own.text.empty() ? base : own}};
}

StreamLinks mjpeg_mode(const LinkFacts &facts)
{
    return {rtsp_link(facts, "mjpeg1")};
}

StreamLinks announce_mode(const LinkFacts &facts)
{
    StreamLinks links{rtsp_link(facts, facts.stream_name)};
    const Settings announce("VideoStreamer.Settings.1.Announce");
    if (!announce.text("host").text.empty())
        links.push_back({"rtspannounce", "rtsp://" + announce.endpoint() + "/" + announce.text("file")});
    return links;
}

StreamLinks rtmp_mode(const LinkFacts &facts)
{
    StreamLinks links{
        {"rtmp", "rtmp://" + facts.address + port_part(kRtmpPort) + "/live/" + facts.stream_name}};
    const Settings rtmp("VideoStreamer.Settings.1.RTMP");
    if (!rtmp.text("url").text.empty())
        links.push_back({"rtmppublish", rtmp.text("url") + "/" + rtmp.text("stream")});
    return links;
}

StreamLinks qvs_mode(const LinkFacts &)
{
    const Settings qvs("VideoStreamer.Settings.1.QVS");
    return {{"qvs", qvs.text("protocol", "udp") + "://" + qvs.endpoint(9710)}};
}

StreamLinks wowza_mode(const LinkFacts &)
{
    const Settings wowza("VideoStreamer.Settings.1.Wowza");
    return {{"wowza", "rtmp://" + wowza.endpoint(kRtmpPort) + "/" + wowza.text("application", "live") + "/" +
                          wowza.text("stream")}};
}

// To add a mode: a row here and its builder above.
constexpr StreamMode kModes[] = {
    {"RTSP", rtsp_mode, true},
    {"RTPPush", rtppush_mode, true},
    {"TS", ts_mode, true},
    {"ZiXi", zixi_mode, false},
    {"HttpLive", httplive_mode, true},
    {"StreamingPlatforms", streaming_platforms_mode, true},
    {"MJPEG", mjpeg_mode, true},
    {"Announce", announce_mode, true},
    {"RTMP", rtmp_mode, true},
    {"MTS", mts_mode, true},
    {"QVS", qvs_mode, true},
    {"SkylarkDirect", skylark_direct_mode, true},
    {"StreamingServer", streaming_server_mode, true},
    {"Wowza", wowza_mode, true},
};

} // namespace

UrlText &UrlText::operator+=(const UrlText &part)
{
    text += part.text;
    valid = valid && part.valid;
    secret = secret || part.secret;
    is_private = is_private || part.is_private;
    perm &= part.perm;
    return *this;
}

UrlText setting_text(std::string_view name, std::string_view fallback)
{
    UrlText part(hdfDB.get_or(name, fallback));
    MetaApi meta(name);
    part.is_private = meta.is_true("private");
    part.secret = part.is_private || meta.is_secret();
    if (part.secret)
        part.perm = meta.perm();
    return part;
}

const StreamMode *find_stream_mode(std::string_view name)
{
    return find_row(kModes, name);
}

StreamLinks quickview_links(const LinkFacts &facts)
{
    StreamLinks links{rtsp_link(facts, "quickview")};
    if (hdfDB.get_int("VideoStreamer.Settings.Quickview.push", 0) != 0)
        add_push_links(links, facts, "quickview");
    return links;
}

} // namespace qvcd

#include "status/stream_urls.h"

#include "base/limits.h"
#include "base/lookup.h"
#include "store/database.h"

#include <optional>

namespace qvcd {

namespace {

using Links = std::vector<StreamLink>;

Links setup_rtsp_links(const LinkFacts &facts);
Links setup_rtppush_links(const LinkFacts &facts);
Links setup_ts_links(const LinkFacts &facts);
Links setup_zixi_links(const LinkFacts &facts);
Links setup_httplive_links(const LinkFacts &facts);
Links setup_streaming_platforms_links(const LinkFacts &facts);
Links setup_mjpeg_links(const LinkFacts &facts);
Links setup_announce_links(const LinkFacts &facts);
Links setup_rtmp_links(const LinkFacts &facts);
Links setup_mts_links(const LinkFacts &facts);
Links setup_qvs_links(const LinkFacts &facts);
Links setup_skylark_direct_links(const LinkFacts &facts);
Links setup_streaming_server_links(const LinkFacts &facts);
Links setup_wowza_links(const LinkFacts &facts);

// To add a mode: a row here and its builder below.
constexpr StreamMode kModes[] = {
    {"RTSP", setup_rtsp_links, true},
    {"RTPPush", setup_rtppush_links, true},
    {"TS", setup_ts_links, true},
    {"ZiXi", setup_zixi_links, false},
    {"HttpLive", setup_httplive_links, true},
    {"StreamingPlatforms", setup_streaming_platforms_links, true},
    {"MJPEG", setup_mjpeg_links, true},
    {"Announce", setup_announce_links, true},
    {"RTMP", setup_rtmp_links, true},
    {"MTS", setup_mts_links, true},
    {"QVS", setup_qvs_links, true},
    {"SkylarkDirect", setup_skylark_direct_links, true},
    {"StreamingServer", setup_streaming_server_links, true},
    {"Wowza", setup_wowza_links, true},
};

constexpr int kDefaultRtspPort = 554;
constexpr int kRtmpPort = 1935;

// Settings below one name.
class Settings {
  public:
    explicit Settings(std::string_view prefix) : prefix_(prefix) {}

    std::string text(std::string_view name, std::string_view fallback = "") const
    {
        return hdfDB.get_or(full(name), fallback);
    }
    long long number(std::string_view name, long long fallback = 0) const
    {
        return hdfDB.get_int(full(name), fallback);
    }
    bool on(std::string_view name) const { return number(name) != 0; }

  private:
    std::string full(std::string_view name) const { return join_name(prefix_, name); }
    std::string_view prefix_;
};

constexpr std::string_view kStreamer = "VideoStreamer.Settings.1";

// "host:port", always with the port.
std::string endpoint(const std::string &host, long long port)
{
    return host + ":" + std::to_string(port);
}

// "[user:password@]host[:port]/path"
std::string rtsp_url(const std::string &user, const std::string &host, long long port,
                     const std::string &path)
{
    return "rtsp://" + user + (port == kDefaultRtspPort ? host : endpoint(host, port)) + "/" + path;
}

std::string rtsp_url(const LinkFacts &facts, const std::string &path)
{
    return rtsp_url("", facts.address, facts.rtsp_port, path);
}

std::string http_base(const LinkFacts &facts)
{
    const std::string scheme = facts.ssl ? "https://" : "http://";
    const bool usual = facts.http_port == (facts.ssl ? 443 : 80);
    return cut(scheme + (usual ? facts.address : endpoint(facts.address, facts.http_port)), kMaxValueBytes);
}

// The links of an RTSP server. `server` is where its settings stand; a tunnel port of 0 stands for "no RTP
// over HTTP".
Links rtsp_server_links(const Settings &server, const std::string &host, long long port,
                        const std::string &stream, std::optional<long long> tunnel_port)
{
    Links links{{"rtsp", rtsp_url("", host, port, stream)}};
    if (server.on("Authentication.enable")) {
        const std::string user =
            server.text("Authentication.username") + ":" + server.text("Authentication.password") + "@";
        links.push_back({"rtspauth", rtsp_url(user, host, port, stream)});
    }
    if (tunnel_port)
        links.push_back({"rtsphttp", "rtsp://" + endpoint(host, *tunnel_port) + "/" + stream});
    if (server.on("RTP.audio_only"))
        links.push_back({"rtspaudio", rtsp_url("", host, port, stream)});
    return links;
}

Links setup_rtsp_links(const LinkFacts &facts)
{
    const Settings rtsp("VideoStreamer.Settings.1.RTSP");
    std::optional<long long> tunnel_port;
    if (rtsp.on("RTPOverHTTP.enable"))
        tunnel_port = hdfDB.get_int("VideoStreamer.Configuration.HTTP.port", 8080);
    return rtsp_server_links(rtsp, facts.address, facts.rtsp_port, facts.stream_name, tunnel_port);
}

// The restreaming server listens on the wireless side only, with a port and a stream of its own.
Links setup_streaming_server_links(const LinkFacts &facts)
{
    if (facts.interface != "wlan0")
        return {};
    const Settings rtsp("StreamingServer.Settings.RTSP");
    return rtsp_server_links(rtsp, facts.address, rtsp.number("port", kDefaultRtspPort),
                             rtsp.text("RTP.streamname", "stream1"), std::nullopt);
}

void add_push_links(Links &links, const LinkFacts &facts, const std::string &stream)
{
    const std::string base = http_base(facts);
    links.push_back({"rtppush", base + "/" + stream + ".sdp"});
    links.push_back({"rtppush1", base + "/" + stream + "_" + facts.serial_number + ".sdp"});
}

Links setup_rtppush_links(const LinkFacts &facts)
{
    Links links{{"rtsp", rtsp_url(facts, facts.stream_name)}};
    add_push_links(links, facts, facts.stream_name);
    return links;
}

// The transport stream of the settings `ts`; none for an unknown protocol.
Links transport_stream_links(const Settings &ts)
{
    const std::string protocol = ts.text("protocol", "udp");
    const std::string target = "@" + endpoint(ts.text("host"), ts.number("port"));
    if (protocol == "tcp")
        return {{"ts", "tcp://" + target}};
    if (protocol == "udp" || protocol == "multicast")
        return {{"ts", "udp://" + target}};
    return {};
}

void add_pull_link(Links &links, const Settings &ts, const std::string &host)
{
    if (ts.on("Server.enable"))
        links.push_back({"tspull", "tcp://" + endpoint(host, ts.number("Server.port", 5000))});
}

Links setup_ts_links(const LinkFacts &facts)
{
    const Settings ts("VideoStreamer.Settings.1.TS");
    Links links = transport_stream_links(ts);
    if (facts.bonded)
        add_pull_link(links, ts, facts.address);
    return links;
}

Links setup_mts_links(const LinkFacts &facts)
{
    const Settings mts("VideoStreamer.Settings.1.MTS");
    Links links = transport_stream_links(mts);
    if (mts.on("rtp_enable"))
        links.push_back({"rtsp", rtsp_url(facts, facts.stream_name)});
    return links;
}

Links setup_skylark_direct_links(const LinkFacts &)
{
    const Settings ts("VideoStreamer.Settings.1.SkylarkDirect.TS");
    Links links = transport_stream_links(ts);
    add_pull_link(links, ts, hdfDB.get_or("VideoStreamer.Settings.1.SkylarkDirect.Server.host", ""));
    return links;
}

Links setup_zixi_links(const LinkFacts &)
{
    const Settings zixi("VideoStreamer.Settings.1.ZiXi");
    return {{"zixi", "zixi://" + endpoint(zixi.text("host"), zixi.number("port", 2088)) + "/" +
                         zixi.text("channel")}};
}

Links setup_httplive_links(const LinkFacts &facts)
{
    return {{"httplive", http_base(facts) + "/httplive/stream.m3u8"}};
}

// A platform's address: the setting `own_url`, where the platform has one, before the platform's fixed base.
struct Platform {
    std::string_view name;
    std::string_view kind;
    std::string_view fallback_base;
    std::string_view own_url;  ///< setting of the platform; empty: none
    std::string_view own_path; ///< setting that follows the base and a "/"; empty: none
};

constexpr Platform kPlatforms[] = {
    {"NewLivestream", "livestream", "https://newlivestream.example.com", "event_url", ""},
    {"Ustream", "ustream", "https://ustream.example.com", "channel_url", ""},
    {"Livestream", "livestream", "https://livestream.example.com", "", "channel"},
    {"Niconico", "niconico", "https://niconico.example.com", "", ""},
};

Links setup_streaming_platforms_links(const LinkFacts &)
{
    const Settings streamer(kStreamer);
    const Platform *platform = find_row(kPlatforms, streamer.text("StreamingPlatforms.provider"));
    if (!platform)
        return {};
    const std::string name(platform->name);
    const std::string own = join_name("VideoStreamer.Settings.1.StreamingPlatforms", name);
    const Settings settings(own);
    std::string url = hdfDB.get_or("VideoStreamer.Configuration.StreamingPlatforms." + name + ".base_url",
                                   platform->fallback_base);
    if (!platform->own_url.empty())
        url = settings.text(platform->own_url, url);
    if (!platform->own_path.empty())
        url += "/" + settings.text(platform->own_path);
    return {{platform->kind, url}};
}

Links setup_mjpeg_links(const LinkFacts &facts)
{
    return {{"rtsp", rtsp_url(facts, "mjpeg1")}};
}

Links setup_announce_links(const LinkFacts &facts)
{
    Links links{{"rtsp", rtsp_url(facts, facts.stream_name)}};
    const Settings announce("VideoStreamer.Settings.1.Announce");
    const std::string host = announce.text("host");
    if (!host.empty())
        links.push_back({"rtspannounce",
                         "rtsp://" + endpoint(host, announce.number("port")) + "/" + announce.text("file")});
    return links;
}

Links setup_rtmp_links(const LinkFacts &facts)
{
    Links links{{"rtmp", "rtmp://" + endpoint(facts.address, kRtmpPort) + "/live/" + facts.stream_name}};
    const Settings rtmp("VideoStreamer.Settings.1.RTMP");
    const std::string url = rtmp.text("url");
    if (!url.empty())
        links.push_back({"rtmppublish", url + "/" + rtmp.text("stream")});
    return links;
}

Links setup_qvs_links(const LinkFacts &)
{
    const Settings qvs("VideoStreamer.Settings.1.QVS");
    return {
        {"qvs", qvs.text("protocol", "udp") + "://" + endpoint(qvs.text("host"), qvs.number("port", 9710))}};
}

Links setup_wowza_links(const LinkFacts &)
{
    const Settings wowza("VideoStreamer.Settings.1.Wowza");
    return {{"wowza", "rtmp://" + endpoint(wowza.text("host"), wowza.number("port", kRtmpPort)) + "/" +
                          wowza.text("application", "live") + "/" + wowza.text("stream")}};
}

} // namespace

const StreamMode *find_stream_mode(std::string_view name)
{
    return find_row(kModes, name);
}

std::vector<StreamLink> setup_quickview_links(const LinkFacts &facts)
{
    constexpr char kStream[] = "quickview";
    Links links{{"rtsp", rtsp_url(facts, kStream)}};
    if (hdfDB.get_int("VideoStreamer.Settings.Quickview.push", 0) != 0)
        add_push_links(links, facts, kStream);
    return links;
}

} // namespace qvcd

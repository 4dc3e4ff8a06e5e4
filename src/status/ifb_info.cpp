#include "status/ifb_info.h"

#include "status/setting_port.h"
#include "store/database.h"

namespace qvcd {

namespace {

constexpr int kOffset = 10;

struct Channel {
    std::optional<int> port;
    std::string host;
};

// Beside the transport stream of the settings `ts`, or beside its server.
Channel beside(const std::string &ts, std::string host)
{
    const auto port = setting_port(ts + ".port", 0);
    return {port ? std::optional(ifb_port(*port)) : std::nullopt, std::move(host)};
}

Channel beside_player()
{
    const std::string ts = "VideoPlayer.Settings.1.TS";
    if (hdfDB.get(ts + ".protocol") == "tcp_pull")
        return beside(ts + ".Server", hdfDB.get_or(ts + ".Server.host", ""));
    return beside(ts, "");
}

Channel beside_streamer()
{
    const std::string ts = "VideoStreamer.Settings.1.TS";
    if (hdfDB.get(ts + ".protocol") == "tcp_pull")
        return beside(ts + ".Server", hdfDB.get_or(ts + ".Server.host", ""));
    return beside(ts, hdfDB.get_or(ts + ".host", ""));
}

Channel over_bonding()
{
    const std::string ts = "VideoStreamer.Settings.1.TS";
    const std::string host = hdfDB.get_or(ts + ".host", "");
    const std::string use = hdfDB.get_or("Bond.Configuration.IFB.use_settings", "auto");
    if (use == "push" || (use == "auto" && !host.empty()))
        return beside(ts, host);
    if (use == "server" || use == "auto")
        return beside(ts + ".Server", "");
    if (use == "manual")
        return {setting_port("Bond.Configuration.IFB.port", 0),
                hdfDB.get_or("Bond.Configuration.IFB.host", "")};
    return {ifb_port(0), ""};
}

std::optional<std::string> print(const Channel &channel, const char *attr)
{
    const std::string_view field = attr ? attr : "";
    if (!attr || (field == "port" && !channel.port))
        return std::nullopt;
    return field == "port" ? std::to_string(*channel.port) : field == "host" ? channel.host : "";
}

} // namespace

int ifb_port(int stream_port)
{
    return stream_port + kOffset > kMaxPort ? stream_port - kOffset : stream_port + kOffset;
}

std::optional<std::string> ifb_enc_info_rfunc(Request &, const char *, const char *attr)
{
    return print(beside_player(), attr);
}

std::optional<std::string> ifb_dec_info_rfunc(Request &, const char *, const char *attr)
{
    return print(beside_streamer(), attr);
}

std::optional<std::string> ifb_bond_info_rfunc(Request &, const char *, const char *attr)
{
    return print(over_bonding(), attr);
}

} // namespace qvcd

#include "status/ifb_info.h"

#include "base/lookup.h"
#include "store/database.h"

#include <string_view>

namespace qvcd {

namespace {

constexpr long long kOffset = 10;
constexpr long long kMaxPort = 65535;

struct Channel {
    long long port = 0;
    std::string host;
};

std::string text(const char *name)
{
    return hdfDB.get_or(name, "");
}

long long number(const char *name)
{
    return hdfDB.get_int(name, 0);
}

Channel pushed_stream()
{
    return {ifb_port(number("VideoStreamer.Settings.1.TS.port")), text("VideoStreamer.Settings.1.TS.host")};
}

Channel served_stream()
{
    return {ifb_port(number("VideoStreamer.Settings.1.TS.Server.port")), ""};
}

// Values of Bond.Configuration.IFB.use_settings.
struct BondRow {
    std::string_view name;
    Channel (*channel)();
};

constexpr BondRow kBondSettings[] = {
    {"auto",
     [] { return text("VideoStreamer.Settings.1.TS.host").empty() ? served_stream() : pushed_stream(); }},
    {"push", pushed_stream},
    {"server", served_stream},
    {"manual",
     [] {
         return Channel{number("Bond.Configuration.IFB.port"), text("Bond.Configuration.IFB.host")};
     }},
};

Channel encoder_channel()
{
    if (hdfDB.get("VideoPlayer.Settings.1.TS.protocol") != "tcp_pull")
        return {ifb_port(number("VideoPlayer.Settings.1.TS.port")), ""};
    return {ifb_port(number("VideoPlayer.Settings.1.TS.Server.port")),
            text("VideoPlayer.Settings.1.TS.Server.host")};
}

Channel decoder_channel()
{
    if (hdfDB.get("VideoStreamer.Settings.1.TS.protocol") != "tcp_pull")
        return pushed_stream();
    return {ifb_port(number("VideoStreamer.Settings.1.TS.Server.port")),
            text("VideoStreamer.Settings.1.TS.Server.host")};
}

Channel bond_channel()
{
    const BondRow *row = find_row(kBondSettings, hdfDB.get_or("Bond.Configuration.IFB.use_settings", "auto"));
    return row ? row->channel() : Channel{ifb_port(0), ""};
}

std::optional<std::string> print(Channel (*channel)(), const char *attr)
{
    if (!attr)
        return std::nullopt;
    const std::string_view field = attr;
    return field == "port" ? std::to_string(channel().port) : field == "host" ? channel().host : "";
}

} // namespace

long long ifb_port(long long stream_port)
{
    return stream_port + kOffset > kMaxPort ? stream_port - kOffset : stream_port + kOffset;
}

std::optional<std::string> ifb_enc_info_rfunc(Request &, const char *, const char *attr)
{
    return print(encoder_channel, attr);
}

std::optional<std::string> ifb_dec_info_rfunc(Request &, const char *, const char *attr)
{
    return print(decoder_channel, attr);
}

std::optional<std::string> ifb_bond_info_rfunc(Request &, const char *, const char *attr)
{
    return print(bond_channel, attr);
}

} // namespace qvcd

#include "status/ifb_info.h"

#include "status/lookup.h"
#include "store/database.h"

#include <string_view>

namespace qvcd {

namespace {

constexpr long kOffset = 10;
constexpr long kMaxPort = 65535;

struct Channel {
    long port = 0;
    std::string host;
};

std::string text(const char *name)
{
    return hdfDB.get_or(name, "");
}

int number(const char *name)
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

bool print(const Channel &channel, std::string_view attr, std::string &out)
{
    if (attr == "port")
        out = std::to_string(channel.port);
    else if (attr == "host")
        out = channel.host;
    return true;
}

} // namespace

long ifb_port(int stream_port)
{
    return stream_port + kOffset > kMaxPort ? stream_port - kOffset : stream_port + kOffset;
}

bool ifb_enc_info_rfunc(const char *, const char *attr, std::string &out, bool)
{
    return attr && print(encoder_channel(), attr, out);
}

bool ifb_dec_info_rfunc(const char *, const char *attr, std::string &out, bool)
{
    return attr && print(decoder_channel(), attr, out);
}

bool ifb_bond_info_rfunc(const char *, const char *attr, std::string &out, bool)
{
    return attr && print(bond_channel(), attr, out);
}

} // namespace qvcd

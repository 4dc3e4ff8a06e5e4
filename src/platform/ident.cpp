#include "platform/ident.h"

#include "platform/small_file.h"

#include <algorithm>
#include <string_view>

namespace qvcd {

namespace {

// Names of connectors; the byte in the memory is the index.
constexpr std::string_view kConnectors[] = {
    "unknown", "hdmi",   "sdi",      "composite", "component", "dvi",
    "vga",     "analog", "embedded", "aes",       "headphone",
};

bool is_binary_build(IdentBytes data)
{
    return !data.empty() && data[0] < 0x20;
}

bool is_text(int group, IdentBytes data)
{
    switch (group) {
    case 1:
    case 6:
    case 7:
    case 23:
        return true;
    case 5:
        return !is_binary_build(data);
    default:
        return false;
    }
}

std::string as_text(IdentBytes data)
{
    return {data.begin(), std::find(data.begin(), data.end(), std::uint8_t{0})};
}

std::string connector_names(IdentBytes data)
{
    std::string names;
    for (const std::uint8_t code : data) {
        if (!names.empty())
            names += ',';
        names += kConnectors[code < std::size(kConnectors) ? code : 0];
    }
    return names;
}

} // namespace

bool qv_ident_read_data(IdentData &data)
{
    data.fill(0);
    const auto bytes = read_small_file("/sys/bus/nvmem/devices/ident0/nvmem", kIdentBytes);
    if (!bytes)
        return false;
    std::transform(bytes->begin(), bytes->end(), data.begin(),
                   [](char c) { return static_cast<std::uint8_t>(c); });
    return true;
}

std::optional<IdentBytes> qv_ident_find_group(const IdentData &data, int group)
{
    IdentBytes rest(data);
    while (rest.size() >= 2 && rest[0] != 0x00 && rest[0] != 0xff) {
        const IdentBytes tail = rest.subspan(2);
        const std::size_t length = std::min<std::size_t>(rest[1], tail.size());
        if (rest[0] == group)
            return tail.first(length);
        rest = tail.subspan(length);
    }
    return std::nullopt;
}

IdentText qv_ident_read_group_using_data(const IdentData &data, int group, IdentDecoder decoder,
                                         std::string &out)
{
    const auto bytes = qv_ident_find_group(data, group);
    if (!bytes)
        return IdentText::none;
    if (!decoder && !is_text(group, *bytes))
        return IdentText::binary;
    out = decoder ? decoder(*bytes) : as_text(*bytes);
    return IdentText::text;
}

bool qv_ident_read_group(int group, std::string &out)
{
    IdentData data;
    return qv_ident_read_data(data) &&
           qv_ident_read_group_using_data(data, group, nullptr, out) == IdentText::text;
}

std::uint32_t ident_read_number(IdentBytes data, std::size_t offset)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4 && offset + i < data.size(); ++i)
        number |= std::uint32_t{data[offset + i]} << (8 * i);
    return number;
}

std::string ident_read_build(IdentBytes data)
{
    return is_binary_build(data) ? std::to_string(ident_read_number(data, kIdentBuildOffset)) : as_text(data);
}

std::string ident_read_outputs(IdentBytes data)
{
    return connector_names(data);
}

std::string ident_read_inputs(IdentBytes data)
{
    return connector_names(data);
}

std::string ident_read_audio_outputs(IdentBytes data)
{
    return connector_names(data);
}

std::string ident_read_audio_inputs(IdentBytes data)
{
    return connector_names(data);
}

} // namespace qvcd

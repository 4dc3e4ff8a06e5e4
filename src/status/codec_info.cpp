#include "status/codec_info.h"

#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/hdf_file.h"

#include <memory>

namespace qvcd {

namespace {

// Where the configuration of a mode and a format stands in the settings tree.
struct CodecRow {
    std::string_view mode;
    std::string_view format;
    std::string_view video;
    std::string_view input; // of an encoder
    std::string_view audio;
};

constexpr CodecRow kCodecs[] = {
    {"encoder", "sd", "VideoEncoder.SD.Configuration", "VideoInput.SD.Configuration",
     "AudioEncoder.SD.Configuration"},
    {"encoder", "hd", "VideoEncoder.Configuration", "VideoInput.Configuration", "AudioEncoder.Configuration"},
    {"decoder", "sd", "VideoDecoder.SD.Configuration", "", "AudioDecoder.SD.Configuration"},
    {"decoder", "hd", "VideoDecoder.Configuration", "", "AudioDecoder.Configuration"},
};

constexpr char kInForceFile[] = "/tmp/mobisettings.hdf";

struct Codec {
    std::string mode = "unknown";
    std::string format = "unknown";
    bool automatic = false; // the format is the one in force
};

const CodecRow *find_codec(const Codec &codec)
{
    for (const CodecRow &row : kCodecs) {
        if (row.mode == codec.mode && row.format == codec.format)
            return &row;
    }
    return nullptr;
}

Codec get_codec_config()
{
    const std::string mode = hdfDB.get_or("Codec.Configuration.mode", "unknown");
    if (mode == "encoder")
        return {mode, hdfDB.get_or("Codec.Configuration.Encoder.format", "unknown")};
    if (mode == "decoder")
        return {mode, hdfDB.get_or("Codec.Configuration.Decoder.format", "unknown")};
    return {};
}

struct InForce {
    std::shared_ptr<Tree> settings; // null when they cannot be read
};

InForce read_in_force()
{
    auto fresh = std::make_shared<Tree>(Tree::make());
    const HdfRead read = hdf_read_own_file_whole(qv_sysroot_path(kInForceFile), *fresh);
    if (read.result == HdfResult::ok)
        return {std::move(fresh)};
    qv_log_print(kLogWarning, "%s: %s\n", kInForceFile,
                 read.detail.empty() ? "cannot be read" : read.detail.c_str());
    return {};
}

const Tree *settings_in_force(Request &request)
{
    return request.once<InForce>(read_in_force).settings.get();
}

// The codec's mode and its format, "auto" resolved if the settings in force can be read.
Codec codec_in_force(Request &request)
{
    Codec codec = get_codec_config();
    if (codec.format != "auto")
        return codec;
    codec.automatic = true;
    if (const Tree *in_force = settings_in_force(request))
        codec.format = in_force->get_or("format", "hd");
    return codec;
}

std::optional<std::string> value_of(Node node, const char *attr)
{
    const auto value = node.get(attr);
    return value ? std::optional<std::string>(*value) : std::nullopt;
}

// The input mode that the codec found is what the input's own API shall show.
void take_over_input_mode(Request &request, const CodecRow &row)
{
    const Tree *in_force = settings_in_force(request);
    Node input = hdfDB.find(row.input);
    if (in_force && input)
        input.set("inputmode", in_force->get_or("inputmode", "hdmi"));
}

bool is_input_attribute(std::string_view attr)
{
    return attr == "inputmode" || attr == "inputformat";
}

} // namespace

std::optional<std::string> codec_video_rfunc(Request &request, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const Codec codec = codec_in_force(request);
    const std::string_view name = attr;
    if (name == "mode" || name == "format")
        return name == "mode" ? codec.mode : codec.format;
    const CodecRow *row = find_codec(codec);
    if (!row)
        return std::nullopt;
    if (codec.automatic && !row->input.empty())
        take_over_input_mode(request, *row);
    if (!is_input_attribute(name))
        return value_of(hdfDB.find(row->video), attr);
    return row->input.empty() ? std::nullopt : value_of(hdfDB.find(row->input), attr);
}

std::optional<std::string> codec_audio_rfunc(Request &request, const char *, const char *attr)
{
    const CodecRow *row = attr ? find_codec(codec_in_force(request)) : nullptr;
    return row ? value_of(hdfDB.find(row->audio), attr) : std::nullopt;
}

std::optional<std::string> codec_spotout_rfunc(Request &, const char *, const char *attr)
{
    const Node spot = hdfDB.find("VideoOutput.Spotout.Configuration");
    return attr ? value_of(spot, attr).value_or("n/a") : "n/a";
}

std::optional<std::string> codec_actual_settings_rfunc(Request &request, const char *, const char *attr)
{
    const Tree *in_force = settings_in_force(request);
    return in_force && attr ? value_of(in_force->root(), attr) : std::nullopt;
}

} // namespace qvcd

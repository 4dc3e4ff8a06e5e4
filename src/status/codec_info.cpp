#include "status/codec_info.h"

#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/hdf_file.h"

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

// The settings in force; null when they cannot be read.
Tree *get_mobisettings(bool cached)
{
    static Tree mobisettings_hdf;
    if (cached && mobisettings_hdf)
        return &mobisettings_hdf;
    mobisettings_hdf.destroy();
    Tree fresh = Tree::make();
    const HdfRead read = hdf_read_own_file_whole(qv_sysroot_path(kInForceFile), fresh);
    if (read.result != HdfResult::ok) {
        qv_log_print(kLogWarning, "%s: %s\n", kInForceFile,
                     read.detail.empty() ? "cannot be read" : read.detail.c_str());
        return nullptr;
    }
    mobisettings_hdf = std::move(fresh);
    return &mobisettings_hdf;
}

// The codec's mode and its format, "auto" resolved if the settings in force can be read.
Codec codec_in_force(bool cached)
{
    Codec codec = get_codec_config();
    if (codec.format != "auto")
        return codec;
    codec.automatic = true;
    if (const Tree *in_force = get_mobisettings(cached))
        codec.format = in_force->get_or("format", "hd");
    return codec;
}

bool give_value(Node node, const char *attr, std::string &out)
{
    const auto value = node.get(attr);
    if (!value)
        return false;
    out = *value;
    return true;
}

// The input mode that the codec found is what the input's own API shall show.
void take_over_input_mode(const CodecRow &row)
{
    const Tree *in_force = get_mobisettings(true);
    Node input = hdfDB.find(row.input);
    if (in_force && input)
        input.set("inputmode", in_force->get_or("inputmode", "hdmi"));
}

bool is_input_attribute(std::string_view attr)
{
    return attr == "inputmode" || attr == "inputformat";
}

} // namespace

bool codec_video_rfunc(const char *, const char *attr, std::string &out, bool cached)
{
    if (!attr)
        return false;
    const Codec codec = codec_in_force(cached);
    const std::string_view name = attr;
    if (name == "mode" || name == "format") {
        out = name == "mode" ? codec.mode : codec.format;
        return true;
    }
    const CodecRow *row = find_codec(codec);
    if (!row)
        return false;
    if (codec.automatic && !row->input.empty())
        take_over_input_mode(*row);
    if (!is_input_attribute(name))
        return give_value(hdfDB.find(row->video), attr, out);
    return !row->input.empty() && give_value(hdfDB.find(row->input), attr, out);
}

bool codec_audio_rfunc(const char *, const char *attr, std::string &out, bool cached)
{
    if (!attr)
        return false;
    const CodecRow *row = find_codec(codec_in_force(cached));
    return row && give_value(hdfDB.find(row->audio), attr, out);
}

bool codec_spotout_rfunc(const char *, const char *attr, std::string &out, bool)
{
    const Node spot = hdfDB.find("VideoOutput.Spotout.Configuration");
    if (!attr || !give_value(spot, attr, out))
        out = "n/a";
    return true;
}

bool codec_actual_settings_rfunc(const char *, const char *attr, std::string &out, bool cached)
{
    const Tree *in_force = get_mobisettings(cached);
    return in_force && attr && give_value(in_force->root(), attr, out);
}

} // namespace qvcd

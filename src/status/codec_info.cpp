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

struct InForce {
    std::shared_ptr<const Tree> settings; // null when they cannot be read
};

InForce read_in_force()
{
    auto fresh = std::make_shared<Tree>();
    const HdfRead read = hdf_read_foreign_file(qv_sysroot_path(kInForceFile), *fresh);
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

struct Codec {
    std::string mode = "unknown";
    std::string format = "unknown";
    const Tree *in_force = nullptr; // what resolved the format "auto"

    const CodecRow *row() const
    {
        for (const CodecRow &row : kCodecs) {
            if (row.mode == mode && row.format == format)
                return &row;
        }
        return nullptr;
    }
};

Codec codec_in_force(Request &request)
{
    Codec codec;
    const std::string mode = hdfDB.get_or("Codec.Configuration.mode", "");
    if (mode == "encoder")
        codec = {mode, hdfDB.get_or("Codec.Configuration.Encoder.format", "unknown")};
    else if (mode == "decoder")
        codec = {mode, hdfDB.get_or("Codec.Configuration.Decoder.format", "unknown")};
    codec.in_force = codec.format == "auto" ? settings_in_force(request) : nullptr;
    if (codec.in_force)
        codec.format = codec.in_force->get_or("format", "hd");
    return codec;
}

std::optional<std::string> setting(std::string_view group, std::string_view name)
{
    return group.empty() ? std::nullopt : own_copy(hdfDB.find(group).get(name));
}

} // namespace

std::optional<std::string> codec_video_rfunc(Request &request, const char *, const char *attr)
{
    if (!attr)
        return std::nullopt;
    const Codec codec = codec_in_force(request);
    const CodecRow *row = codec.row();
    const std::string_view name = attr;
    if (name == "mode" || name == "format")
        return name == "mode" ? codec.mode : codec.format;
    if (!row)
        return std::nullopt;
    if (name == "inputmode" && codec.in_force && !row->input.empty())
        return codec.in_force->get_or(name, "hdmi");
    return setting(name == "inputmode" || name == "inputformat" ? row->input : row->video, name);
}

std::optional<std::string> codec_audio_rfunc(Request &request, const char *, const char *attr)
{
    const CodecRow *row = attr ? codec_in_force(request).row() : nullptr;
    return row ? setting(row->audio, attr) : std::nullopt;
}

std::optional<std::string> codec_spotout_rfunc(Request &, const char *, const char *attr)
{
    return attr ? setting("VideoOutput.Spotout.Configuration", attr).value_or("n/a") : "n/a";
}

std::optional<std::string> codec_actual_settings_rfunc(Request &request, const char *, const char *attr)
{
    const Tree *in_force = attr ? settings_in_force(request) : nullptr;
    return in_force ? own_copy(in_force->get(attr)) : std::nullopt;
}

} // namespace qvcd

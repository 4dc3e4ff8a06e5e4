#include "status/codec_info.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

// Every configuration says its own name.
class CodecInfoTest : public StatusTest {
  protected:
    void SetUp() override
    {
        StatusTest::SetUp();
        set_values({{"VideoEncoder.Configuration.size", "encoder hd"},
                    {"VideoEncoder.SD.Configuration.size", "encoder sd"},
                    {"VideoDecoder.Configuration.size", "decoder hd"},
                    {"VideoDecoder.SD.Configuration.size", "decoder sd"},
                    {"VideoInput.Configuration.inputmode", "input hd"},
                    {"VideoInput.SD.Configuration.inputmode", "input sd"},
                    {"AudioEncoder.Configuration.size", "audio encoder hd"},
                    {"AudioEncoder.SD.Configuration.size", "audio encoder sd"},
                    {"AudioDecoder.Configuration.size", "audio decoder hd"},
                    {"AudioDecoder.SD.Configuration.size", "audio decoder sd"}});
    }

    static void in_force(const std::string &text) { appliance_root().write("tmp/mobisettings.hdf", text); }
    static std::string video(const char *attr) { return read_with(codec_video_rfunc, nullptr, attr); }
};

TEST_F(CodecInfoTest, SelectsTheConfiguration)
{
    const struct {
        const char *mode, *encoder, *decoder, *in_force;
        const char *format, *size, *input, *audio_size;
    } cases[] = {
        {"encoder", "hd", "sd", "inputmode=x\n", "hd", "encoder hd", "input hd", "audio encoder hd"},
        {"encoder", "sd", "hd", "", "sd", "encoder sd", "input sd", "audio encoder sd"},
        {"decoder", "sd", "hd", "", "hd", "decoder hd", kNothing, "audio decoder hd"},
        {"decoder", "hd", "sd", "", "sd", "decoder sd", kNothing, "audio decoder sd"},
        {"encoder", "4k", "hd", "", "4k", kNothing, kNothing, kNothing},
        {"standby", "hd", "hd", "", "unknown", kNothing, kNothing, kNothing},
        {"encoder", "auto", "hd", "broken {\n", "auto", kNothing, kNothing, kNothing},
        {"encoder", "auto", "hd", "format=sd\ninputmode=composite\n", "sd", "encoder sd", "composite",
         "audio encoder sd"},
        {"encoder", "auto", "hd", "other=1\n", "hd", "encoder hd", "hdmi", "audio encoder hd"},
        {"decoder", "hd", "auto", "format=sd\ninputmode=x\n", "sd", "decoder sd", kNothing,
         "audio decoder sd"},
    };
    EXPECT_EQ(video("mode"), "unknown") << "unset";
    for (const auto &c : cases) {
        in_force(c.in_force);
        set_values({{"Codec.Configuration.mode", c.mode},
                    {"Codec.Configuration.Encoder.format", c.encoder},
                    {"Codec.Configuration.Decoder.format", c.decoder}});
        EXPECT_EQ(video("mode"), c.mode == std::string("standby") ? "unknown" : c.mode);
        EXPECT_EQ(video("format"), c.format);
        EXPECT_EQ(video("size"), c.size);
        EXPECT_EQ(video("inputmode"), c.input);
        EXPECT_EQ(video("inputformat"), kNothing);
        EXPECT_EQ(read_with(codec_audio_rfunc, nullptr, "size"), c.audio_size);
    }
    EXPECT_EQ(video(nullptr), kNothing);
    EXPECT_EQ(read_with(codec_audio_rfunc, nullptr, nullptr), kNothing);
    EXPECT_EQ(hdfDB.get("VideoInput.SD.Configuration.inputmode"), "input sd") << "what the user wants stays";
    EXPECT_EQ(hdfDB.get("VideoInput.Configuration.inputmode"), "input hd");
}

TEST_F(CodecInfoTest, SettingsInForceAndSpotOutput)
{
    const auto actual = [](const char *attr) {
        return read_with(codec_actual_settings_rfunc, nullptr, attr);
    };
    EXPECT_EQ(actual("Video.bitrate"), kNothing);
    in_force("Video {\n  bitrate = 5000\n}\n");
    EXPECT_EQ(actual("Video.bitrate"), "5000");
    EXPECT_EQ(actual("Video.none"), kNothing);
    EXPECT_EQ(actual(nullptr), kNothing);
    in_force("Video {\n  bitrate = 6000\n");
    EXPECT_EQ(actual("Video.bitrate"), kNothing) << "a damaged file";

    EXPECT_EQ(read_with(codec_spotout_rfunc, nullptr, "mode"), "n/a");
    set_values({{"VideoOutput.Spotout.Configuration.mode", "pal"}});
    EXPECT_EQ(read_with(codec_spotout_rfunc, nullptr, "mode"), "pal");
    EXPECT_EQ(read_with(codec_spotout_rfunc, nullptr, nullptr), "n/a");
}

} // namespace
} // namespace qvcd

#include "status/codec_info.h"
#include "status_fixture.h"

namespace qvcd {
namespace {

class CodecInfoTest : public StatusTest {
  protected:
    void SetUp() override
    {
        StatusTest::SetUp();
        set_values(configurations());
    }

    // Every configuration says its own name.
    static Values configurations()
    {
        return {{"VideoEncoder.Configuration.size", "encoder hd"},
                {"VideoEncoder.SD.Configuration.size", "encoder sd"},
                {"VideoDecoder.Configuration.size", "decoder hd"},
                {"VideoDecoder.SD.Configuration.size", "decoder sd"},
                {"VideoInput.Configuration.inputmode", "input hd"},
                {"VideoInput.SD.Configuration.inputmode", "input sd"},
                {"AudioEncoder.Configuration.size", "audio encoder hd"},
                {"AudioEncoder.SD.Configuration.size", "audio encoder sd"},
                {"AudioDecoder.Configuration.size", "audio decoder hd"},
                {"AudioDecoder.SD.Configuration.size", "audio decoder sd"}};
    }

    static void in_force(const std::string &text) { appliance_root().write("tmp/mobisettings.hdf", text); }
    static std::string video(const char *attr, bool cached = false)
    {
        return read_with(codec_video_rfunc, nullptr, attr, cached);
    }
    static std::string audio(const char *attr) { return read_with(codec_audio_rfunc, nullptr, attr); }
};

TEST_F(CodecInfoTest, SelectsTheConfiguration)
{
    const struct {
        const char *mode, *encoder, *decoder;
        const char *format, *size, *input, *audio_size;
    } cases[] = {
        {"encoder", "hd", "sd", "hd", "encoder hd", "input hd", "audio encoder hd"},
        {"encoder", "sd", "hd", "sd", "encoder sd", "input sd", "audio encoder sd"},
        {"decoder", "sd", "hd", "hd", "decoder hd", kNothing, "audio decoder hd"},
        {"decoder", "hd", "sd", "sd", "decoder sd", kNothing, "audio decoder sd"},
        {"encoder", "4k", "hd", "4k", kNothing, kNothing, kNothing},
        {"standby", "hd", "hd", "unknown", kNothing, kNothing, kNothing},
    };
    for (const auto &c : cases) {
        set_values({{"Codec.Configuration.mode", c.mode},
                    {"Codec.Configuration.Encoder.format", c.encoder},
                    {"Codec.Configuration.Decoder.format", c.decoder}});
        EXPECT_EQ(video("mode"), c.mode == std::string("standby") ? "unknown" : c.mode);
        EXPECT_EQ(video("format"), c.format);
        EXPECT_EQ(video("size"), c.size);
        EXPECT_EQ(video("inputmode"), c.input);
        EXPECT_EQ(video("inputformat"), kNothing);
        EXPECT_EQ(video("nokey"), kNothing);
        EXPECT_EQ(audio("size"), c.audio_size);
    }
    EXPECT_EQ(video(nullptr), kNothing);
    EXPECT_EQ(audio(nullptr), kNothing);
}

TEST_F(CodecInfoTest, UnsetModeIsUnknown)
{
    EXPECT_EQ(video("mode"), "unknown");
    EXPECT_EQ(video("format"), "unknown");
    EXPECT_EQ(video("size"), kNothing);
}

TEST_F(CodecInfoTest, AutomaticFormatIsTheOneInForce)
{
    set_values({{"Codec.Configuration.mode", "encoder"}, {"Codec.Configuration.Encoder.format", "auto"}});
    EXPECT_EQ(video("format"), "auto") << "without the settings in force";
    EXPECT_EQ(video("size"), kNothing);

    in_force("format = sd\ninputmode = composite\n");
    EXPECT_EQ(video("format"), "sd");
    EXPECT_EQ(hdfDB.get("VideoInput.SD.Configuration.inputmode"), "input sd")
        << "asking for the format copies nothing";
    EXPECT_EQ(video("inputmode"), "composite");
    EXPECT_EQ(hdfDB.get("VideoInput.SD.Configuration.inputmode"), "composite");
    EXPECT_EQ(audio("size"), "audio encoder sd");

    in_force("other = 1\n");
    EXPECT_EQ(video("format", true), "sd") << "of the same request";
    EXPECT_EQ(video("format"), "hd");
    EXPECT_EQ(video("size"), "encoder hd");
    EXPECT_EQ(hdfDB.get("VideoInput.Configuration.inputmode"), "hdmi");
}

TEST_F(CodecInfoTest, AutomaticDecoderHasNoInput)
{
    set_values({{"Codec.Configuration.mode", "decoder"}, {"Codec.Configuration.Decoder.format", "auto"}});
    in_force("format = sd\n");
    EXPECT_EQ(video("size"), "decoder sd");
    EXPECT_EQ(hdfDB.get("VideoInput.SD.Configuration.inputmode"), "input sd");
}

TEST_F(CodecInfoTest, SettingsInForce)
{
    const auto actual = [](const char *attr, bool cached) {
        return read_with(codec_actual_settings_rfunc, nullptr, attr, cached);
    };
    EXPECT_EQ(actual("Video.bitrate", false), kNothing);
    in_force("Video {\n  bitrate = 5000\n}\n");
    EXPECT_EQ(actual("Video.bitrate", true), "5000") << "nothing was held";
    EXPECT_EQ(actual("Video.none", true), kNothing);
    EXPECT_EQ(actual(nullptr, false), kNothing);
    in_force("Video {\n  bitrate = 6000\n");
    EXPECT_EQ(actual("Video.bitrate", true), "5000");
    EXPECT_EQ(actual("Video.bitrate", false), kNothing) << "a damaged file";
    EXPECT_EQ(actual("Video.bitrate", true), kNothing) << "the old values are gone";
}

TEST_F(CodecInfoTest, SpotOutput)
{
    EXPECT_EQ(read_with(codec_spotout_rfunc, nullptr, "mode"), "n/a");
    set_values({{"VideoOutput.Spotout.Configuration.mode", "pal"}});
    EXPECT_EQ(read_with(codec_spotout_rfunc, nullptr, "mode"), "pal");
    EXPECT_EQ(read_with(codec_spotout_rfunc, nullptr, nullptr), "n/a");
}

} // namespace
} // namespace qvcd

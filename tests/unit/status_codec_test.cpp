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
        for (const std::string coder : {"VideoEncoder", "VideoDecoder", "AudioEncoder", "AudioDecoder"})
            set_values(
                {{coder + ".Configuration.size", coder}, {coder + ".SD.Configuration.size", coder + " sd"}});
        set_values({{"VideoInput.Configuration.inputmode", "input"},
                    {"VideoInput.SD.Configuration.inputmode", "input sd"}});
    }
    static void in_force(const std::string &text) { appliance_root().write("tmp/mobisettings.hdf", text); }
};

TEST_F(CodecInfoTest, SelectsTheConfiguration)
{
    const struct {
        const char *mode, *encoder, *decoder, *in_force;
        const char *format, *size, *input, *audio_size;
    } cases[] = {
        {"encoder", "hd", "sd", "inputmode=x\n", "hd", "VideoEncoder", "input", "AudioEncoder"},
        {"encoder", "sd", "hd", "", "sd", "VideoEncoder sd", "input sd", "AudioEncoder sd"},
        {"standby", "hd", "hd", "", "unknown", kNothing, kNothing, kNothing},
        {"encoder", "auto", "hd", "broken {\n", "auto", kNothing, kNothing, kNothing},
        {"encoder", "auto", "hd", "format=sd\ninputmode=composite\n", "sd", "VideoEncoder sd", "composite",
         "AudioEncoder sd"},
        {"encoder", "auto", "hd", "other=1\n", "hd", "VideoEncoder", "hdmi", "AudioEncoder"},
        {"decoder", "hd", "auto", "format=sd\n", "sd", "VideoDecoder sd", kNothing, "AudioDecoder sd"},
    };
    for (const auto &c : cases) {
        in_force(c.in_force);
        set_values({{"Codec.Configuration.mode", c.mode},
                    {"Codec.Configuration.Encoder.format", c.encoder},
                    {"Codec.Configuration.Decoder.format", c.decoder}});
        expect_reads(codec_video_rfunc, {{"mode", c.mode == std::string("standby") ? "unknown" : c.mode},
                                         {"format", c.format},
                                         {"size", c.size},
                                         {"inputmode", c.input},
                                         {"inputformat", kNothing},
                                         {nullptr, kNothing}});
        expect_reads(codec_audio_rfunc, {{"size", c.audio_size}, {nullptr, kNothing}});
    }
    EXPECT_EQ(hdfDB.get("VideoInput.SD.Configuration.inputmode"), "input sd") << "what the user wants stays";
}

TEST_F(CodecInfoTest, SettingsInForceAndSpotOutput)
{
    in_force("Video {\n  bitrate = 5000\n}\n");
    expect_reads(codec_actual_settings_rfunc,
                 {{"Video.bitrate", "5000"}, {"Video.none", kNothing}, {nullptr, kNothing}});
    in_force("Video {\n  bitrate = 6000\n");
    expect_reads(codec_actual_settings_rfunc, {{"Video.bitrate", kNothing}}, "a damaged file");
    expect_reads(codec_spotout_rfunc, {{"mode", "n/a"}});
    set_values({{"VideoOutput.Spotout.Configuration.mode", "pal"}});
    expect_reads(codec_spotout_rfunc, {{"mode", "pal"}, {nullptr, "n/a"}});
}

} // namespace
} // namespace qvcd

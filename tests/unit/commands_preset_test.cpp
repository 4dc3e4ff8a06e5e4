#include "commands/preset_store.h"
#include "commands_fixture.h"

namespace qvcd {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class PresetTest : public SnapshotTest {
  protected:
    // Two presets of two APIs; the first one is current and matches the defaults.
    void SetUp() override
    {
        SnapshotTest::SetUp();
        write("etc/presets/preset.conf", "Preset.current=1\n");
        write("etc/presets/template", "Enc.rate\nEnc.text\n");
        write_preset(1, kFirst);
        write_preset(2, kSecond);
    }
    static std::string conf() { return file("etc/presets/preset.conf"); }
    static std::string preset(int number) { return file("etc/presets/preset" + std::to_string(number)); }
    static void write_preset(int number, const char *text)
    {
        write("etc/presets/preset" + std::to_string(number), text);
    }

    static constexpr char kFirst[] = "Config.name=one\nConfig.desc=First %s\nEnc.rate=10\nEnc.text=plain\n";
    static constexpr char kSecond[] = "Config.name=two\nConfig.desc=2\nEnc.rate=20\nEnc.text=a+b%20c d\n";
};

constexpr char kNoPreset[] = "##Can not get preset#\n";
constexpr char kInvalidNumber[] = "##Invalid preset number#\n";
constexpr char kReport1[] =
    "Preset.Current.number=1\nPreset.Current.name=one\nPreset.Current.desc=First %s\n";
constexpr char kCustom[] =
    "Preset.Current.number=0\nPreset.Current.name=custom\nPreset.Current.desc=Custom Preset\n";
constexpr char kConfig2[] = "Preset.2.Config.name=two\nPreset.2.Config.desc=2\n";
constexpr char kWhole2[] =
    "Preset.2.Config.name=two\nPreset.2.Config.desc=2\nPreset.2.Enc.rate=20\nPreset.2.Enc.text=a+b%20c d\n";

TEST_F(PresetTest, StartTakesTheFilesUpToTheFirstThatIsNoGood)
{
    write_preset(4, kFirst);
    start();
    EXPECT_EQ(preset_max_num, 2);
    EXPECT_FALSE(preset_node(4));
    for (int n = 3; n <= 21; ++n)
        write_preset(n, "Enc.rate=20\n");
    start();
    EXPECT_EQ(preset_max_num, 20);
    EXPECT_THAT(reply("preset.get 4"),
                HasSubstr("Preset.4.Config.name=two\n")); // what it lacks is the one's before
    write_preset(2, "Enc.rate=20\nEnc {\n");
    start();
    EXPECT_EQ(preset_max_num, 1);
}

TEST_F(PresetTest, ConfWithoutACurrentPresetIsWrittenAnew)
{
    const struct {
        const char *before, *after;
        int current;
    } rows[] = {
        {"Preset.current=2", "Preset.current=2", 2},
        {"# empty\nOther=1\n", "Preset.current=1\n", 0},
        {"not good\n", "not good\n", 0}, // may be good again
        {nullptr, "Preset.current=1\n", 0},
    };
    for (const auto &row : rows) {
        std::filesystem::remove(appliance_root().path("etc/presets/preset.conf"));
        if (row.before)
            write("etc/presets/preset.conf", row.before);
        start();
        EXPECT_EQ(preset_current(), row.current) << row.after;
        EXPECT_EQ(conf(), row.after);
    }
}

TEST_F(PresetTest, Template)
{
    write("etc/presets/template", "Config.name\nEnc.rate\n\nx\nConfiguration.x\n%s%n\nEnc.text");
    start();
    EXPECT_THAT(preset_settings, ElementsAre("Enc.rate", "x", "%s%n", "Enc.text"));
    EXPECT_EQ(reply("preset.current"),
              "Enc.rate=10\nx=##Can not read value#\n%s%n=##Can not read value#\nEnc.text=plain\n");
    std::string names;
    for (int n = 0; n < 150; ++n)
        names += "A.b" + std::to_string(n) + "\n";
    write("etc/presets/template", names);
    start();
    EXPECT_EQ(preset_settings.size(), 99U);
}

TEST_F(PresetTest, WithoutAFolderTheDatabaseIsEmpty)
{
    std::filesystem::remove_all(appliance_root().path("etc/presets"));
    write("import", "Preset.current = 4\n");
    start();
    ask("set Enc.rate=77");
    const std::pair<const char *, const char *> rows[] = {
        {"check", kNoPreset}, {"info", kCustom},           {"import /import", "##Can not save preset#\n"},
        {"save", kNoPreset},  {"load_apply_name one", ""}, {"export", ""},
    };
    for (const auto &[line, text] : rows)
        EXPECT_EQ(reply(std::string("preset.") + line), text) << line;
    EXPECT_EQ(flag("Enc.rate", "mod"), "1"); // nothing was saved
    EXPECT_FALSE(exists("etc/presets"));
}

TEST_F(PresetTest, Replies)
{
    start();
    const std::string config = "Preset.1.Config.name=one\nPreset.1.Config.desc=First %s\n";
    const std::string whole = config + "Preset.1.Enc.rate=10\nPreset.1.Enc.text=plain\n";
    const std::pair<const char *, std::string> rows[] = {
        {"get current", kReport1},
        {"info", kReport1 + config + kConfig2},
        {"info 3", kInvalidNumber},
        {"info -1", kNoPreset},
        {"get", kReport1 + whole + kWhole2},
        {"load 3", kInvalidNumber},
        {"load 0", kNoPreset},
        {"load_name", "##Need to specify a preset name#\n"},
        {"set 21", kInvalidNumber},
        {"save 3", kNoPreset},
        {"store 21", kInvalidNumber},
        {"read 3", ""},
        {"import", "##Need to specify an import file#\n"},
        {"import /none%s", "##Can not find import file /none%s#\n"},
        {"export", "Preset.current=1\n" + whole + kWhole2},
        {"export /none/x", "##can not write /none/x#\n"},
    };
    for (const auto &[line, text] : rows)
        EXPECT_EQ(ask(std::string("preset.") + line), (Answer{0, text})) << line;
    EXPECT_EQ(ask("preset.export", 0xf0ff), (Answer{0, ""}));
}

TEST_F(PresetTest, CheckComparesEveryApi)
{
    start();
    EXPECT_EQ(reply("preset.check"), kReport1);
    ask("set Enc.text=Plain");
    EXPECT_EQ(reply("preset.check"), kCustom);
    ask("set Enc.text=plain");
    presetDB.remove("Preset.1.Enc.text");
    EXPECT_EQ(reply("preset.check"), kCustom);
    preset_settings = {"Enc.rate", "Enc.nothing"};
    EXPECT_EQ(reply("preset.check"), kCustom);
}

TEST_F(PresetTest, LoadSetsWhatItCanAndMakesThePresetCurrent)
{
    write("etc/presets/template", "Enc.rate\nEnc.gone\nEnc.look\nEnc.text\n");
    write_preset(2, "Enc.rate=200\nEnc.gone=1\nEnc.look=new\nEnc.text=a+b%20c d\n");
    start();
    EXPECT_EQ(reply("preset.load 2"),
              "Enc.rate=##Invalid integer range#: 200\nEnc.gone=##Parameter not found#\n"
              "Enc.look=##Invalid permission#\nEnc.text=a+b%20c d\n");
    EXPECT_EQ(setting("Enc.text"), "a+b%20c d");
    EXPECT_EQ(flag("Enc.text", "mod"), "1");
    EXPECT_EQ(conf(), "Preset.current=2");
    start();
    EXPECT_EQ(preset_current(), 2);
}

TEST_F(PresetTest, LoadByName)
{
    write_preset(2, "Config.name=My Cam\nEnc.rate=20\n");
    write_preset(3, "Config.name=one\nEnc.rate=30\n");
    start();
    EXPECT_EQ(reply("preset.load_name My"), "");
    EXPECT_EQ(reply("preset.load_name My%20Cam"), "Enc.rate=20\n");
    EXPECT_EQ(reply("preset.load_name one"), "Enc.rate=10\n"); // the first of them
    EXPECT_EQ(preset_current(), 1);
    presetDB.remove("Preset.1.Config");
    EXPECT_EQ(reply("preset.load_name template"), kNoPreset);
}

TEST_F(PresetTest, LoadAndApplySavesTheTemplateOnly)
{
    start();
    hdfDB.set("Enc.still", "changed");
    meta_set("Enc.still", "mod", "1");
    EXPECT_EQ(reply("preset.load_apply 3"), kInvalidNumber);
    const std::string values = "Enc.rate=20\nEnc.text=a+b%20c d\n";
    EXPECT_EQ(reply("preset.load_apply 2"), values + values + "Enc.rate=20\n");
    EXPECT_THAT(file("etc/enc.conf"), testing::AllOf(HasSubstr("RATE=\"20\""), HasSubstr("STILL=\"quiet\"")));
    EXPECT_EQ(flag("Enc.rate", "mod") + flag("Enc.still", "mod"), "01");
    ask("set Enc.rate=33");
    EXPECT_EQ(reply("preset.load_apply_name nobody"), "Enc.rate=33\nEnc.rate=33\n"); // saves without a load
    EXPECT_EQ(flag("Enc.rate", "mod"), "0");
}

TEST_F(PresetTest, StoreWritesAFileOfLines)
{
    start();
    ask("set Enc.rate=44 Enc.text=x%3D%7B%20%23%25s");
    EXPECT_EQ(reply("preset.set 2"), "Preset.2.Enc.rate=44\nPreset.2.Enc.text=x={ #%s\n");
    EXPECT_EQ(preset(2), kSecond);
    const std::string whole = kConfig2 + std::string("Preset.2.Enc.rate=44\nPreset.2.Enc.text=x={ #%s\n");
    EXPECT_EQ(reply("preset.save 2"), whole);
    EXPECT_EQ(preset(2), "Config.name=two\nConfig.desc=2\nEnc.rate=44\nEnc.text=x={ #%s\n");
    ask("preset.store 3");
    ask("set Enc.rate=10");
    EXPECT_EQ(reply("preset.load 3"), "Enc.rate=44\n") << "a new preset can be loaded at once";
    const std::string known = reply("preset.get 3"); // with what a start would take over
    ask("preset.store 3");
    EXPECT_EQ(preset(3), "Enc.rate=44\nEnc.text=x={ #%s\n");
    write_preset(5, "Config.name=unread\nEnc.rate=1\n"); // behind a gap
    ask("preset.store 5");
    EXPECT_EQ(preset(5), "Config.name=unread\nEnc.rate=44\nEnc.text=x={ #%s\n");
    start();
    EXPECT_EQ(reply("preset.get 2"), whole);
    EXPECT_EQ(preset_max_num, 3);
    EXPECT_EQ(reply("preset.get 3"), known);
}

TEST_F(PresetTest, ReadPutsTheFileOverMemory)
{
    start();
    write_preset(2, "Enc.rate=55\n");
    EXPECT_EQ(reply("preset.read 2"), "Preset.2.Enc.rate=55\n");
    write_preset(2, "Enc.rate=66\nbad line\n");
    EXPECT_EQ(reply("preset.read 2"), "");
    EXPECT_EQ(presetDB.get("Preset.2.Enc.rate"), "55");
    write_preset(2, "Enc.text << EOM\n a\tb \nEOM\n");
    EXPECT_EQ(reply("preset.read 2"), "Preset.2.Enc.text= a b \n");
}

TEST_F(PresetTest, ImportRewritesTheFilesThatExist)
{
    start();
    ask("preset.export /tmp-export");
    write("import", "Preset {\n  current = 2x\n  1.Config.name = uno\n  2.Enc.rate = 21\n}\n");
    EXPECT_EQ(reply("preset.import /import"), "");
    EXPECT_EQ(conf(), "Preset.current=2");
    EXPECT_EQ(preset(1), "Config.name=uno\nConfig.desc=First %s\nEnc.rate=10\nEnc.text=plain\n");
    EXPECT_EQ(preset(2), "Config.name=two\nConfig.desc=2\nEnc.rate=21\nEnc.text=a+b%20c d\n");
    EXPECT_FALSE(exists("etc/presets/preset3"));
    EXPECT_EQ(reply("preset.import /tmp-export"), "");
    EXPECT_EQ(preset(1) + preset(2), std::string(kFirst) + kSecond);
    const std::string before = reply("preset.export");
    for (const char *text :
         {"", "Preset.current = 2\nPreset {\n",
          "Preset.current = 2\nPreset.1.Enc.text << EOM\ntwo\nlines\nEOM\n",
          // What no file of theirs can hold.
          "Preset.1.Enc.rate = 7\nPreset.3.Enc.rate = 31\n",
          "Preset.1.Enc.rate = 7\nPreset.01.Enc.rate = 31\n", "Preset.1.Enc.rate = 7\nPreset.1 = x\n",
          "Preset.1.Enc.rate = 7\nPreset.current.x = 1\n", "Preset.1.Enc.rate = 7\nPreset = x\n",
          "Preset.1.Enc.rate = 7\nEnc.rate = 8\n"}) {
        write("import", text);
        EXPECT_EQ(reply("preset.import /import"), "##Import failed#\n") << text;
    }
    EXPECT_EQ(reply("preset.export"), before);
    EXPECT_EQ(conf() + preset(1), std::string("Preset.current=1") + kFirst);
}

} // namespace
} // namespace qvcd

#include "commands/preset_store.h"
#include "snapshot_fixture.h"

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
        preset_files("Preset.current=1\n", "Enc.rate\nEnc.text\n");
        write("etc/presets/preset1", kFirst);
        write("etc/presets/preset2", kSecond);
    }
    static void preset_files(const std::string &conf, const std::string &names)
    {
        write("etc/presets/preset.conf", conf);
        write("etc/presets/template", names);
    }
    static std::string conf() { return file("etc/presets/preset.conf"); }
    static void set(const std::string &api, const std::string &value) { ASSERT_TRUE(hdfDB.set(api, value)); }

    static constexpr char kFirst[] = "Config.name=one\nConfig.desc=First %s\nEnc.rate=10\nEnc.text=plain\n";
    static constexpr char kSecond[] = "Config.name=two\nConfig.desc=2\nEnc.rate=20\nEnc.text=a+b%20c d\n";
};

constexpr char kNoPreset[] = "##Can not get preset#\n";
constexpr char kInvalidNumber[] = "##Invalid preset number#\n";
constexpr char kReport1[] =
    "Preset.Current.number=1\nPreset.Current.name=one\nPreset.Current.desc=First %s\n";
constexpr char kCustom[] =
    "Preset.Current.number=0\nPreset.Current.name=custom\nPreset.Current.desc=Custom Preset\n";
constexpr char kWhole2[] =
    "Preset.2.Config.name=two\nPreset.2.Config.desc=2\nPreset.2.Enc.rate=20\nPreset.2.Enc.text=a+b%20c d\n";

TEST_F(PresetTest, StartTakesTheFilesUpToTheFirstThatIsNoGood)
{
    write("etc/presets/preset4", kFirst);
    start();
    EXPECT_EQ(preset_max_num, 2);
    EXPECT_FALSE(preset_node(4));
    for (int n = 3; n <= 21; ++n)
        write("etc/presets/preset" + std::to_string(n), "Enc.rate=20\n");
    start();
    EXPECT_EQ(preset_max_num, 20);
    EXPECT_EQ(reply("preset.get 4"),
              "Preset.4.Config.name=two\nPreset.4.Config.desc=2\nPreset.4.Enc.rate=20\n"
              "Preset.4.Enc.text=a+b%20c d\n"); // what a file lacks is the one's before
    write("etc/presets/preset2", "Enc.rate=20\nEnc {\n");
    start();
    EXPECT_EQ(preset_max_num, 1);
}

TEST_F(PresetTest, ConfWithoutACurrentPresetIsWrittenAnew)
{
    const struct {
        const char *before, *after;
        int current;
    } rows[] = {
        {"Preset.current=2\n", "Preset.current=2\n", 2},
        {"Preset.current=2", "Preset.current=2", 2},
        {"Preset {\n  current = 2\n}\n", "Preset {\n  current = 2\n}\n", 2},
        {"", "Preset.current=1\n", 0},
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
    for (const char *text : {names.c_str(), "", "\n"}) {
        write("etc/presets/template", text);
        start();
        EXPECT_EQ(preset_settings.size(), text == names ? 99U : 0U);
    }
}

TEST_F(PresetTest, WithoutAFolderTheDatabaseIsEmpty)
{
    std::filesystem::remove_all(appliance_root().path("etc/presets"));
    write("import", "Preset.current = 4\n");
    start();
    set("Enc.rate", "77");
    meta_set("Enc.rate", "mod", "1");
    const std::pair<const char *, const char *> rows[] = {
        {"check", kNoPreset},
        {"load", kNoPreset},
        {"load 1", kInvalidNumber},
        {"load_apply_name one", ""},
        {"info", kCustom},
        {"get current", kNoPreset},
        {"set", kInvalidNumber},
        {"save", kNoPreset},
        {"export", ""},
        {"import /import", "##Can not save preset#\n"},
        {"export", ""},
    };
    for (const auto &[line, text] : rows)
        EXPECT_EQ(reply(std::string("preset.") + line), text) << line;
    EXPECT_EQ(meta_get_this_level("Enc.rate", "mod"), "1"); // nothing was saved
    EXPECT_FALSE(exists("etc/presets"));
}

TEST_F(PresetTest, Replies)
{
    start();
    const std::string config = "Preset.1.Config.name=one\nPreset.1.Config.desc=First %s\n";
    const std::string whole = config + "Preset.1.Enc.rate=10\nPreset.1.Enc.text=plain\n";
    const std::pair<const char *, std::string> rows[] = {
        {"current", "Enc.rate=10\nEnc.text=plain\n"},
        {"bogus", "Enc.rate=10\nEnc.text=plain\n"},
        {"check", kReport1},
        {"get current", kReport1},
        {"info", kReport1 + config + "Preset.2.Config.name=two\nPreset.2.Config.desc=2\n"},
        {"info 1", config},
        {"info 2x", "Preset.2.Config.name=two\nPreset.2.Config.desc=2\n"},
        {"info 3", kInvalidNumber},
        {"info -1", kNoPreset},
        {"get", kReport1 + whole + kWhole2},
        {"get 1", whole},
        {"get 3", kInvalidNumber},
        {"load 3", kInvalidNumber},
        {"load 0", kNoPreset},
        {"load_name", "##Need to specify a preset name#\n"},
        {"set 21", kInvalidNumber},
        {"save 3", kNoPreset},
        {"store 21", kInvalidNumber},
        {"read 2", kWhole2},
        {"read 3", ""},
        {"import", "##Need to specify an import file#\n"},
        {"import /none%s", "##Can not find import file /none%s#\n"},
        {"export", "Preset.current=1\n" + whole + kWhole2},
        {"export /none/x", "##can not write /none/x#\n"},
    };
    for (const auto &[line, text] : rows)
        EXPECT_EQ(ask(std::string("preset.") + line), (Answer{0, text})) << line;
    EXPECT_EQ(ask("preset.export", 0xf0ff), (Answer{0, ""}));
    EXPECT_THAT(reply("preset"), testing::StartsWith("preset: This menu\npreset.current: Get the current "));
}

TEST_F(PresetTest, CheckComparesEveryApi)
{
    start();
    set("Enc.text", "Plain");
    EXPECT_EQ(reply("preset.check"), kCustom);
    set("Enc.text", "plain");
    presetDB.remove("Preset.1.Enc.text");
    EXPECT_EQ(reply("preset.check"), kCustom);
    preset_settings = {"Enc.rate", "Enc.nothing"};
    EXPECT_EQ(reply("preset.check"), kCustom);
    preset_settings = {"Enc.rate"};
    EXPECT_EQ(reply("preset.check"), kReport1);
    presetDB.remove("Preset.1.Config");
    EXPECT_EQ(reply("preset.check"),
              "Preset.Current.number=1\nPreset.Current.name=custom\nPreset.Current.desc=Custom Preset\n");
}

TEST_F(PresetTest, LoadSetsWholeValuesAndMakesThePresetCurrent)
{
    start();
    EXPECT_EQ(reply("preset.load 2"), "Enc.rate=20\nEnc.text=a+b%20c d\n");
    EXPECT_EQ(hdfDB.get("Enc.text"), "a+b%20c d");
    EXPECT_EQ(meta_get_this_level("Enc.rate", "mod"), "1");
    EXPECT_EQ(meta_get_this_level("Enc.rate", "noapp"), "1");
    EXPECT_EQ(conf(), "Preset.current=2");
    EXPECT_EQ(reply("preset.load"), ""); // set says nothing of what is so already
    start();
    EXPECT_EQ(preset_current(), 2);
}

TEST_F(PresetTest, LoadReportsWhatItCanNotSet)
{
    write("etc/presets/template", "Enc.rate\nEnc.gone\nEnc.look\nEnc.text\n");
    write("etc/presets/preset2", "Enc.rate=200\nEnc.gone=1\nEnc.look=new\nEnc.text=set\n");
    start();
    EXPECT_EQ(reply("preset.load 2"),
              "Enc.rate=##Invalid integer range#: 200\nEnc.gone=##Parameter not found#\n"
              "Enc.look=##Invalid permission#\nEnc.text=set\n");
    EXPECT_EQ(preset_current(), 2);
}

TEST_F(PresetTest, LoadByName)
{
    write("etc/presets/preset2", "Config.name=My Cam\nEnc.rate=20\n");
    write("etc/presets/preset3", "Config.name=one\nEnc.rate=30\n");
    start();
    EXPECT_EQ(reply("preset.load_name My"), "");
    EXPECT_EQ(reply("preset.load_name template"), "");
    EXPECT_EQ(reply("preset.load_name My%20Cam"), "Enc.rate=20\n");
    EXPECT_EQ(reply("preset.load_name one"), "Enc.rate=10\n"); // the first of them
    EXPECT_EQ(preset_current(), 1);
    presetDB.remove("Preset.2.Config.name");
    EXPECT_EQ(reply("preset.load_name template"), "Enc.rate=20\n");
    presetDB.remove("Preset.1.Config");
    EXPECT_EQ(reply("preset.load_name template"), kNoPreset);
}

TEST_F(PresetTest, LoadAndApplySavesTheTemplateOnly)
{
    start();
    set("Enc.still", "changed");
    meta_set("Enc.still", "mod", "1");
    const std::string values = "Enc.rate=20\nEnc.text=a+b%20c d\n";
    EXPECT_EQ(reply("preset.load_apply 2"), values + values + "Enc.rate=20\n");
    EXPECT_THAT(file("etc/enc.conf"), HasSubstr("RATE=\"20\""));
    EXPECT_THAT(file("etc/enc.conf"), HasSubstr("STILL=\"quiet\""));
    EXPECT_EQ(meta_get_this_level("Enc.rate", "mod"), "0");
    EXPECT_EQ(meta_get_this_level("Enc.still", "mod"), "1");
}

TEST_F(PresetTest, AFailedLoadSavesNothingButByName)
{
    start();
    ask("set Enc.rate=33");
    EXPECT_EQ(reply("preset.load_apply 3"), kInvalidNumber);
    EXPECT_EQ(meta_get_this_level("Enc.rate", "mod"), "1");
    EXPECT_EQ(reply("preset.load_apply_name nobody"), "Enc.rate=33\nEnc.rate=33\n");
    EXPECT_EQ(meta_get_this_level("Enc.rate", "mod"), "0");
}

TEST_F(PresetTest, StoreWritesAFileOfLines)
{
    start();
    ask("set Enc.rate=44 Enc.text=x%3D%7B%20%23%25s");
    EXPECT_EQ(reply("preset.set 2"), "Preset.2.Enc.rate=44\nPreset.2.Enc.text=x={ #%s\n");
    EXPECT_EQ(file("etc/presets/preset2"), kSecond);
    const std::string whole =
        "Preset.2.Config.name=two\nPreset.2.Config.desc=2\nPreset.2.Enc.rate=44\nPreset.2.Enc.text=x={ #%s\n";
    EXPECT_EQ(reply("preset.save 2"), whole);
    EXPECT_EQ(file("etc/presets/preset2"), "Config.name=two\nConfig.desc=2\nEnc.rate=44\nEnc.text=x={ #%s\n");
    EXPECT_EQ(reply("preset.store 3"), "Preset.3.Enc.rate=44\nPreset.3.Enc.text=x={ #%s\n"
                                       "Preset.3.Enc.rate=44\nPreset.3.Enc.text=x={ #%s\n");
    const std::string known = reply("preset.get 3"); // with what a start would take over
    ask("preset.store 3");
    EXPECT_EQ(file("etc/presets/preset3"), "Enc.rate=44\nEnc.text=x={ #%s\n");
    write("etc/presets/preset5", "Config.name=unread\nEnc.rate=1\n"); // behind a gap
    ask("preset.store 5");
    EXPECT_EQ(file("etc/presets/preset5"), "Config.name=unread\nEnc.rate=44\nEnc.text=x={ #%s\n");
    start();
    EXPECT_EQ(reply("preset.get 2"), whole);
    EXPECT_EQ(preset_max_num, 3);
    EXPECT_EQ(reply("preset.get 3"), known);
}

TEST_F(PresetTest, ReadPutsTheFileOverMemory)
{
    start();
    write("etc/presets/preset2", "Enc.rate=55\n");
    EXPECT_EQ(reply("preset.read 2"), "Preset.2.Enc.rate=55\n");
    EXPECT_EQ(reply("preset.get 2"), "Preset.2.Config.name=two\nPreset.2.Config.desc=2\nPreset.2.Enc.rate="
                                     "55\nPreset.2.Enc.text=a+b%20c d\n");
    write("etc/presets/preset2", "Enc.rate=66\nbad line\n");
    EXPECT_EQ(reply("preset.read 2"), "");
    EXPECT_EQ(presetDB.get("Preset.2.Enc.rate"), "55");
    write("etc/presets/preset2", "Enc.text << EOM\n a\tb \nEOM\n");
    EXPECT_EQ(reply("preset.read 2"), "Preset.2.Enc.text= a b \n");
}

TEST_F(PresetTest, ImportRewritesTheFilesThatExist)
{
    start();
    ask("preset.export /tmp-export");
    write("import",
          "Preset {\n  current = 2x\n  1.Config.name = uno\n  2.Enc.rate = 21\n  3.Enc.rate = 31\n}\n");
    EXPECT_EQ(reply("preset.import /import"), "");
    EXPECT_EQ(conf(), "Preset.current=2");
    EXPECT_EQ(file("etc/presets/preset1"),
              "Config.name=uno\nConfig.desc=First %s\nEnc.rate=10\nEnc.text=plain\n");
    EXPECT_EQ(file("etc/presets/preset2"),
              "Config.name=two\nConfig.desc=2\nEnc.rate=21\nEnc.text=a+b%20c d\n");
    EXPECT_FALSE(exists("etc/presets/preset3"));
    EXPECT_EQ(reply("preset.import /tmp-export"), "");
    EXPECT_EQ(file("etc/presets/preset1"), kFirst);
    EXPECT_EQ(file("etc/presets/preset2"), kSecond);
}

TEST_F(PresetTest, ABadImportChangesNothing)
{
    start();
    const std::string before = reply("preset.export");
    for (const char *text :
         {"", "Preset.current = 2\nPreset {\n", "Preset.current = 2\n#include \"/etc/enc.conf\"\n",
          "Preset.current = 2\nPreset.1.Enc.text << EOM\ntwo\nlines\nEOM\n"}) {
        write("import", text);
        EXPECT_EQ(reply("preset.import /import"), "##Import failed#\n") << text;
    }
    EXPECT_EQ(reply("preset.import /etc"), "##Import failed#\n");
    EXPECT_EQ(reply("preset.export"), before);
    EXPECT_EQ(conf() + file("etc/presets/preset1"), std::string("Preset.current=1\n") + kFirst);
}

} // namespace
} // namespace qvcd

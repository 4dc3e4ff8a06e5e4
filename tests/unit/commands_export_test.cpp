#include "selfdesc_fixture.h"

#include "platform/log.h"

#include <sys/stat.h>

namespace qvcd {
namespace {

using ExportTest = SelfDescriptionTest;
using ImportTest = SelfDescriptionTest;

// The values of a document, one line each.
std::string values(const std::string &document)
{
    Tree tree = Tree::make();
    const HdfRead read = hdf_read_foreign_file(appliance_root().write("tmp/values", document), tree);
    return read.result == HdfResult::ok ? tree_text(tree) : "bad document: " + read.detail;
}

TEST_F(ExportTest, ModesTellWhatGoesOut)
{
    const std::string name = "Box.name=my+box\nBox.color=red\n";
    const std::string pin = "Box.pin=s3cret\n";
    const std::string clock = "Box.clock=20240229T12%3A00%3A00\n";
    const std::string state = "Box.state=awake\n"; // read live
    const std::string fixed = "Box.fixed=stone\n";
    const std::string web = "Web.Configuration.show_pageload_stats=1\nWeb.Wizard.firstrun=1\n";
    const struct {
        unsigned mask;
        Args args;
        std::string text;
    } rows[] = {
        {kAdmin, {}, name + clock + web},
        {kAdmin, {"stdout"}, name + clock + web},
        {kAdmin, {"stdout", "0"}, name + clock + web},
        {kAdmin, {"stdout", "1"}, name + clock + state + web},
        {kAdmin, {"stdout", "2"}, name + pin + clock + web},
        {kAdmin, {"stdout", "3"}, name + pin + clock + state + fixed + web},
        {kAdmin, {"stdout", "4"}, name + clock + web},
        {kAdmin, {"stdout", "-1"}, name + clock + web},
        {kMaker, {"stdout", ""}, name + clock + "Box.shy=blush\n" + web},
        {kMaker, {"stdout", "3", "Box.maker", "Box.shy"}, "Box.maker=mark\nBox.shy=blush\n"},
        {kAdmin, {"stdout", "0", "Web", "Box.name"}, web + "Box.name=my+box\n"},
        {0x0333, {"stdout", "3"}, ""},
    };
    for (const auto &row : rows) {
        const Answer answer = ask("export", row.mask, row.args);
        EXPECT_EQ(0, answer.result);
        EXPECT_EQ(row.text, values(answer.text)) << testing::PrintToString(row.args);
    }
    const Answer unknown = ask("export", kAdmin, {"stdout", "0", "Nope", "Box.color"});
    EXPECT_EQ((Answer{0, "Nope=##Parameter not found#\nBox {\n  color = red\n}\n"}), unknown);
}

TEST_F(ExportTest, UnreadableLiveValueIsTheStoredOne)
{
    std::filesystem::remove(appliance_root().path("etc/state"));
    EXPECT_EQ((Answer{0, "Box {\n  state = none\n}\n"}), ask("export", kAdmin, {"stdout", "1", "Box.state"}));
}

TEST_F(ExportTest, Files)
{
    const auto mode_of = [](const std::string &name) {
        struct stat st {};
        EXPECT_EQ(0, stat(appliance_root().path(name).c_str(), &st)) << name;
        return st.st_mode & 07777U;
    };
    EXPECT_EQ((Answer{0, ""}), ask("export", kAdmin, {"/../../tmp/a", "0", "Box.name"}));
    EXPECT_EQ("Box {\n  name = my+box\n}\n", appliance_root().read("tmp/a"));
    EXPECT_EQ(0U, mode_of("tmp/a") & 0022U);
    EXPECT_EQ((Answer{0, ""}), ask("export", kAdmin, {"/tmp/b", "2", "Box"}));
    EXPECT_EQ(0600U, mode_of("tmp/b")); // passwords in clear
    for (const std::string &target :
         {std::string("/none/a"), std::string("/tmp"), "/" + std::string(5000, 'a')})
        EXPECT_EQ((Answer{1, "##can not write " + target + "#\n"}), ask("export", kAdmin, {target}));
}

TEST_F(ImportTest, WhatWasExportedComesBack)
{
    const std::string odd = " a=b%41+{}@" + std::string(1012, '~'); // 1,023 bytes, escaped three times that
    hdfDB.set("Box.name", odd);
    hdfDB.set("Box.color", "blue");
    ASSERT_EQ((Answer{0, ""}), ask("export", kAdmin, {"/tmp/user_settings.hdf", "2"}));
    for (const char *api : {"Box.name", "Box.color", "Box.pin"})
        hdfDB.set(api, "x");
    EXPECT_EQ((Answer{0, "Box.name=" + odd + "\nBox.color=blue\nBox.pin=*******\n"}),
              ask("import", kAdmin, {}));
    EXPECT_EQ(odd, hdfDB.get_or("Box.name", ""));
    EXPECT_EQ("s3cret", hdfDB.get_or("Box.pin", ""));
}

TEST_F(ImportTest, ModesTellWhichFlagsRise)
{
    appliance_root().write("tmp/in", "Box.name = new\n");
    const struct {
        const char *mode, *mod, *noapp;
    } rows[] = {{"0", "1", "1"}, {"1", "1", "0"}, {"2", "0", "1"},
                {"3", "0", "0"}, {"", "1", "1"},  {"9", "1", "1"}};
    for (const auto &row : rows) {
        hdfDB.set("Box.name", "old");
        meta_set("Box.name", "mod", "0");
        meta_set("Box.name", "noapp", "0");
        EXPECT_EQ((Answer{0, "Box.name=new\n"}), ask("import", kAdmin, {"/tmp/in", row.mode})) << row.mode;
        EXPECT_EQ(row.mod, meta_get_this_level("Box.name", "mod")) << row.mode;
        EXPECT_EQ(row.noapp, meta_get_this_level("Box.name", "noapp")) << row.mode;
    }
}

TEST_F(ImportTest, Values)
{
    const struct {
        unsigned mask;
        std::string document, reply;
        const char *api, *value;
    } rows[] = {
        {kAdmin, "Box.name = a%2Bb+%25", "Box.name=a+b %\n", "Box.name", "a+b %"},
        {kAdmin, "Box.name = my+box", "", "Box.name", "my box"}, // unchanged
        {kAdmin, "Box.color = gr%65en", "Box.color=gr%65en=##Parameter not found#\n", "Box.color", "red"},
        {kAdmin, "Box.name =", "Box.name==##Parameter not found#\n", "Box.name", "my box"},
        {kAdmin, "Box.name = a%00b", "Box.name=##Invalid character#\n", "Box.name", "my box"},
        {kAdmin, "Box.clock = 20250101T00%3A00%3A00", "", "Box.clock", "20240229T12:00:00"},
        {kAdmin, "Box.clock = noon", "Box.clock=noon=##Parameter not found#\n", "Box.clock",
         "20240229T12:00:00"},
        {kAdmin, "Box.fixed = x", "", "Box.fixed", "stone"},
        {0x0555, "Box.name = x", "", "Box.name", "my box"},
        {kAdmin, "Box = x", "Box=##Parameter not found#\n", "Box", ""},
        {kAdmin, "Nope = x\nBox.nope = x\nBox.name.help = x", "Box.name.help=##Parameter not found#\n",
         "Box.nope", ""},
        {kAdmin, "Box {\n pin {\n }\n color = blue\n}\nWeb.Wizard.firstrun = 0",
         "Box.color=blue\nWeb.Wizard.firstrun=0\n", "Box.pin", "s3cret"},
        {kAdmin, "Box.name = " + std::string(1 << 20, 'a'), "Box.name=##Invalid string length, too long#\n",
         "Box.name", "my box"},
    };
    for (const auto &row : rows) {
        SetUp();
        appliance_root().write("tmp/in", row.document + "\n");
        EXPECT_EQ((Answer{0, row.reply}), ask("import", row.mask, {"/tmp/in"})) << row.document.substr(0, 60);
        EXPECT_EQ(row.value, hdfDB.get_or(row.api, "")) << row.document.substr(0, 60);
        EXPECT_FALSE(metaDB.find("Box.name.help").first_child()) << row.document.substr(0, 60);
        TearDown();
    }
    SetUp();
}

TEST_F(ImportTest, RefusedDocumentsChangeNothing)
{
    appliance_root().write("tmp/other", "Box.name = other\n");
    const struct {
        const char *what;
        std::string document;
    } rows[] = {
        {"include", "Box.color = blue\n#include \"" + appliance_root().path("tmp/other") + "\"\n"},
        {"closing brace", "Box.color = blue\n}\nBox.name = x\n"},
        {"empty", ""},
        {"comment", "# nothing\n"},
    };
    const std::string before = tree_text(hdfDB);
    for (const auto &row : rows) {
        appliance_root().write("tmp/in", row.document);
        EXPECT_EQ((Answer{1, "##Import failed#\n"}), ask("import", kAdmin, {"/tmp/in"})) << row.what;
        EXPECT_EQ(before, tree_text(hdfDB)) << row.what;
    }
    for (const char *file : {"/tmp/none", "/tmp", "/tmp/other/x", ""})
        EXPECT_EQ((Answer{1, "##Import failed#\n"}), ask("import", kAdmin, {file})) << file;
}

TEST_F(ImportTest, LogTellsNoPassword)
{
    appliance_root().write("tmp/in", "Box.pin = 0ther\n");
    qv_log_start(4, false, false, appliance_root().path("tmp/log").c_str(), false, "test");
    ask("import", kAdmin, {"/tmp/in"});
    ask("export", kAdmin, {"/tmp/out", "2"});
    qv_log_stop();
    const std::string log = appliance_root().read("tmp/log");
    EXPECT_NE(std::string::npos, log.find("exporting Box.pin=*******\n")) << log;
    EXPECT_EQ(std::string::npos, log.find("0ther")) << log;
    EXPECT_NE(std::string::npos, appliance_root().read("tmp/out").find("0ther"));
}

} // namespace
} // namespace qvcd

#include "commands_fixture.h"
#include "platform/log.h"

namespace qvcd {
namespace {

using testing::HasSubstr;

using ExportTest = SelfDescriptionTest;
using ImportTest = SelfDescriptionTest;

constexpr char kFailed[] = "##Import failed#\n";

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
    const std::string web = "Web.Configuration.show_pageload_stats=1\nWeb.Wizard.firstrun=1\n";
    const struct {
        unsigned mask;
        const char *arguments;
        std::string text;
    } rows[] = {
        {kAdmin, " stdout 1", name + clock + state + web},
        {kAdmin, " stdout 2", name + pin + clock + web},
        {kAdmin, " stdout 3", name + pin + clock + state + "Box.fixed=stone\n" + web},
        {kAdmin, " stdout 4", name + clock + web},
        {kAdmin, " stdout -1", name + clock + web},
        {kMaker, " stdout", name + clock + "Box.shy=blush\n" + web},
        {kMaker, " stdout 3 Box.maker Box.shy", "Box.maker=mark\nBox.shy=blush\n"},
        {0x0333, " stdout 3", ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.text, values(reply(std::string("export") + row.arguments, row.mask))) << row.arguments;
    EXPECT_EQ(ask("export stdout 0 Nope Box.color"),
              (Answer{0, "Nope=##Parameter not found#\nBox {\n  color = red\n}\n"}));
    std::filesystem::remove(appliance_root().path("etc/state")); // the stored value of what cannot be read
    EXPECT_EQ(reply("export stdout 1 Box.state"), "Box {\n  state = none\n}\n");
}

TEST_F(ExportTest, Files)
{
    EXPECT_EQ(ask("export /../../tmp/a 0 Box.name"), (Answer{0, ""}));
    EXPECT_EQ(file("tmp/a"), "Box {\n  name = my+box\n}\n");
    EXPECT_EQ(appliance_root().mode_of("tmp/a"), 0644U);
    EXPECT_EQ(ask("export /tmp/b 2 Box"), (Answer{0, ""}));
    EXPECT_EQ(appliance_root().mode_of("tmp/b"), 0600U); // passwords in clear
    for (const std::string &target :
         {std::string("/none/a"), std::string("/tmp"), "/" + std::string(5000, 'a')})
        EXPECT_EQ(ask("export " + target), (Answer{1, "##can not write " + target + "#\n"}));
}

TEST_F(ImportTest, WhatWasExportedComesBack)
{
    const std::string odd = " a=b%41+{}@" + std::string(1012, '~'); // 1,023 bytes, escaped three times that
    hdfDB.set("Box.name", odd);
    ASSERT_EQ(ask("export /tmp/user_settings.hdf 2"), (Answer{0, ""}));
    for (const char *api : {"Box.name", "Box.color", "Box.pin"})
        hdfDB.set(api, "x");
    EXPECT_EQ(ask("import"), (Answer{0, "Box.name=" + odd + "\nBox.color=red\nBox.pin=*******\n"}));
    EXPECT_EQ(odd, hdfDB.get("Box.name"));
    EXPECT_EQ("s3cret", hdfDB.get("Box.pin"));
}

TEST_F(ImportTest, ModesTellWhichFlagsRise)
{
    write("tmp/in", "Box.name = new\n");
    const std::pair<const char *, const char *> rows[] = {{"0", "11"}, {"1", "10"}, {"2", "01"},
                                                          {"3", "00"}, {"9", "11"}, {"-1", "11"}};
    for (const auto &[mode, flags] : rows) {
        hdfDB.set("Box.name", "old");
        meta_set("Box.name", "mod", "0");
        meta_set("Box.name", "noapp", "0");
        EXPECT_EQ(reply(std::string("import /tmp/in ") + mode), "Box.name=new\n");
        EXPECT_EQ(*meta_get_this_level("Box.name", "mod") + *meta_get_this_level("Box.name", "noapp"), flags)
            << mode;
    }
}

TEST_F(ImportTest, Values)
{
    const struct {
        unsigned mask;
        std::string document, reply;
        const char *api, *value;
    } rows[] = {
        {kAdmin, "Box.color = gr%65en", "Box.color=gr%65en=##Parameter not found#\n", "Box.color", "red"},
        {kAdmin, "Box.name = a%00b", "Box.name=##Invalid character#\n", "Box.name", "my box"},
        {kAdmin, "Box.clock = 20250101T00%3A00%3A00", "", "Box.clock", "20240229T12:00:00"},
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
        write("tmp/in", row.document + "\n");
        EXPECT_EQ(ask("import /tmp/in", row.mask), (Answer{0, row.reply})) << row.document.substr(0, 60);
        EXPECT_EQ(row.value, hdfDB.get_or(row.api, "")) << row.document.substr(0, 60);
        EXPECT_FALSE(metaDB.find("Box.name.help").first_child()) << row.document.substr(0, 60);
    }
}

TEST_F(ImportTest, RefusedDocumentsChangeNothing)
{
    const std::string before = tree_text(hdfDB);
    for (const char *document : {"Box.color = blue\n}\nBox.name = x\n", "", "# nothing\n"}) {
        write("tmp/in", document);
        EXPECT_EQ(ask("import /tmp/in"), (Answer{1, kFailed})) << document;
    }
    for (const char *name : {"/tmp/none", "/tmp", "/tmp/in/x"})
        EXPECT_EQ(ask(std::string("import ") + name), (Answer{1, kFailed})) << name;
    EXPECT_EQ(tree_text(hdfDB), before);
}

TEST_F(ImportTest, LogTellsNoPassword)
{
    write("tmp/in", "Box.pin = 0ther\n");
    qv_log_start(4, false, false, appliance_root().path("tmp/log").c_str(), false, "test");
    ask("import /tmp/in");
    ask("export /tmp/out 2");
    qv_log_stop();
    EXPECT_THAT(file("tmp/log"), HasSubstr("exporting Box.pin=*******\n"));
    EXPECT_THAT(file("tmp/log"), testing::Not(HasSubstr("0ther")));
    EXPECT_THAT(file("tmp/out"), HasSubstr("0ther"));
}

} // namespace
} // namespace qvcd

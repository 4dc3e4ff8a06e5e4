#include "selfdesc_fixture.h"

#include "auth/session.h"
#include "store/menu.h"

namespace qvcd {
namespace {

constexpr char kMenu[] = R"(main {
  header.load = Box.name
  settings {
    load = Box.color, Web.Wizard
    introspect = Web.Wizard.firstrun
  }
  manual.external = http://www.example.com/manual
}
)";
constexpr char kWizard[] = "wizard.firstrun = 1\nmain.wizard.load = Box.fixed\n";

class MenuTest : public SelfDescriptionTest {
  protected:
    void SetUp() override
    {
        SelfDescriptionTest::SetUp();
        disable_login = 0;
        session_load_db_file(0);
    }
    void TearDown() override
    {
        menu_unload_db_file();
        session_unload_db_file();
        SelfDescriptionTest::TearDown();
    }

    static int load(const std::string &menu, const std::string &wizard)
    {
        appliance_root().write("home/www/menu.hdf", menu);
        appliance_root().write("etc/wizard.hdf", wizard);
        return menu_load_db_file(qv_device_file("/home/www/menu.hdf"));
    }
};

constexpr char kTail[] = "menu.stats=1\nuser=root\n";

TEST_F(MenuTest, ReloadKnowsTheFileOnlyWithTheWizard)
{
    const std::string kept = menu_get_db_filename().text; // outlives the other tests
    appliance_root().write("home/www/other.hdf", kMenu);
    EXPECT_EQ(0, menu_load_db_file(qv_device_file("/home/www/other.hdf")));
    EXPECT_NE("", tree_text(menuDB));
    EXPECT_EQ(kept, menu_get_db_filename().text);
    EXPECT_EQ((Answer{0, ""}), ask("menu", kAdmin, {"reload"}));
    EXPECT_EQ((Answer{0, ""}), ask("menu", kAdmin, {"get"}));

    EXPECT_EQ(0, load(kMenu, kWizard));
    EXPECT_EQ("/home/www/menu.hdf", menu_get_db_filename().text);
    appliance_root().write("home/www/menu.hdf", "main.new.load = Box\n");
    EXPECT_EQ((Answer{0, ""}), ask("menu", kAdmin, {"reload"}));
    EXPECT_EQ((Answer{0, "main.new.load=Box\nmain.wizard.load=Box.fixed\nwizard.firstrun=1\n"}),
              ask("menu", kAdmin, {"get"}));
}

TEST_F(MenuTest, Load)
{
    const struct {
        const char *menu, *wizard;
        int result;
        const char *tree;
    } rows[] = {
        {"a = 1\n", "b = 2\n", 0, "a=1\nb=2\n"},
        {"a = 1\n", "b = 2\n}\n", 0, "a=1\n"}, // a bad wizard file is only logged
        {"a = 1\nb {\n", "b = 2\n", 1, ""},
        {"#include \"/etc/passwd\"\n", "b = 2\n", 1, ""},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, load(row.menu, row.wizard)) << row.menu;
        EXPECT_EQ(row.tree, tree_text(menuDB)) << row.menu;
        EXPECT_EQ(row.result == 0, static_cast<bool>(menuDB)) << row.menu;
        menu_unload_db_file();
    }
    EXPECT_EQ(0, menu_load_db_file(qv_device_file("/home/www/none.hdf")));
    EXPECT_FALSE(menuDB);
}

TEST_F(MenuTest, SubCommands)
{
    ASSERT_EQ(0, load(kMenu, kWizard));
    const std::string whole = tree_text(menuDB);
    const std::string name = "Box.name=my box\n";
    const std::string firstrun = "Web.Wizard.firstrun=1\n";
    const std::string described = "Web.Wizard.firstrun.type=boolean\nWeb.Wizard.firstrun.value=1\n"
                                  "Web.Wizard.firstrun.choices=[0,1]\nWeb.Wizard.firstrun.0=0\n"
                                  "Web.Wizard.firstrun.1=1\n";
    const struct {
        unsigned mask;
        Args args;
        std::string text;
    } rows[] = {
        {kViewer, {"get"}, ""},
        {kAdmin, {"get"}, whole},
        {kAdmin, {"bogus"}, whole},
        {kAdmin, {"get", "main.settings"}, "load=Box.color, Web.Wizard\nintrospect=Web.Wizard.firstrun\n"},
        {kAdmin, {"get", "none"}, ""},
        {kAdmin, {"getload", "0", "settings"}, name + "Box.color=red\n" + firstrun + described + kTail},
        {kAdmin, {"getload", "0", "none"}, name + kTail},
        {kAdmin, {"getload", "0"}, name + kTail},
        {kAdmin, {"getload", "0", "a=b/c"}, name + kTail},
        {kAdmin,
         {"getload", "0", "manual"},
         "main.manual.external=http://www.example.com/manual\n" + name + kTail},
        {kAdmin, {"getload"}, "##Need to specify a session number#\n"},
        {kAdmin, {"getload", "7", "settings"}, "##Session 7 does not exist#\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ((Answer{0, row.text}), ask("menu", row.mask, row.args)) << testing::PrintToString(row.args);
}

TEST_F(MenuTest, EmptyMenuLoadsNothing)
{
    EXPECT_EQ((Answer{0, ""}), ask("menu", kAdmin, {"get"}));
    EXPECT_EQ((Answer{0, kTail}), ask("menu", kAdmin, {"getload", "0", "settings"}));
    disable_login = 1;
    EXPECT_EQ((Answer{0, "menu.stats=1\nuser=\n"}), ask("menu", kAdmin, {"getload", "7", "settings"}));
    disable_login = 0;
}

TEST_F(MenuTest, BothListsShareAHundredNames)
{
    std::string names, lines;
    for (int i = 0; i < 98; ++i) {
        names += " N";
        lines += "N=##Parameter not found#\n";
    }
    ASSERT_EQ(0, load("main.p.load = Box.color" + names + "\nmain.p.introspect = X, Y, Z\n", kWizard));
    EXPECT_EQ((Answer{0, "Box.color=red\n" + lines + "X=##Parameter not found#\n" + kTail}),
              ask("menu", kAdmin, {"getload", "0", "p"}));
    ASSERT_EQ(0, load("main.p.load =" + names + names + "\nmain.p.introspect = X\n", kWizard));
    EXPECT_EQ((Answer{0, lines + "N=##Parameter not found#\nN=##Parameter not found#\n" + kTail}),
              ask("menu", kAdmin, {"getload", "0", "p"}));
}

TEST_F(MenuTest, FirstRun)
{
    ASSERT_EQ(0, load(kMenu, kWizard));
    const struct {
        Args args;
        const char *value;
    } rows[] = {
        {{"firstrun", "2"}, "0"}, {{"firstrun", "1"}, "1"}, {{"firstrun"}, "0"}, {{"firstrun", "1x"}, "1"}};
    for (const auto &row : rows) {
        EXPECT_EQ((Answer{0, std::string("Web.Wizard.firstrun=") + row.value + "\n"}),
                  ask("menu", kAdmin, row.args));
        EXPECT_EQ(row.value, menuDB.get_or("wizard.firstrun", ""));
        EXPECT_EQ(row.value, hdfDB.get_or("Web.Wizard.firstrun", ""));
    }
}

} // namespace
} // namespace qvcd

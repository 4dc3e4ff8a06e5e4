#include "auth/session.h"
#include "base/options.h"
#include "commands_fixture.h"
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
constexpr char kTail[] = "menu.stats=1\nuser=root\n";

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
        write("home/www/menu.hdf", menu);
        write("etc/wizard.hdf", wizard);
        return menu_load_db_file(qv_device_file("/home/www/menu.hdf"));
    }
};

TEST_F(MenuTest, LoadAndReload)
{
    const std::string kept = menu_get_db_filename().text; // outlives the other tests
    EXPECT_EQ(0, menu_load_db_file(qv_device_file("/home/www/none.hdf")));
    EXPECT_FALSE(menuDB);
    write("home/www/other.hdf", kMenu);
    EXPECT_EQ(0, menu_load_db_file(qv_device_file("/home/www/other.hdf")));
    EXPECT_EQ(kept, menu_get_db_filename().text) << "known only with the wizard";
    EXPECT_EQ(reply("menu.reload"), "");
    EXPECT_EQ(reply("menu.get"), "");

    const struct {
        const char *menu, *wizard;
        int result;
        const char *tree;
    } rows[] = {
        {"a = 1\nb {\n", "b = 2\n", 1, ""},
        {"a = 1\n", "b = 2\n}\n", 0, "a=1\n"}, // a bad wizard file is only logged
        {"a = 1\n", "b = 2\n", 0, "a=1\nb=2\n"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, load(row.menu, row.wizard)) << row.menu;
        EXPECT_EQ(row.tree, reply("menu.get")) << row.menu;
    }
    write("home/www/menu.hdf", "main.new.load = Box\n");
    ask("menu.reload");
    EXPECT_EQ(reply("menu.get"), "main.new.load=Box\nb=2\n");
}

TEST_F(MenuTest, SubCommands)
{
    EXPECT_EQ(reply("menu.getload 0 settings"), kTail) << "without a menu";
    ASSERT_EQ(0, load(kMenu, kWizard));
    const std::string name = "Box.name=my box\n";
    const std::pair<const char *, std::string> rows[] = {
        {"get main.settings", "load=Box.color, Web.Wizard\nintrospect=Web.Wizard.firstrun\n"},
        {"getload 0 settings", name +
                                   "Box.color=red\nWeb.Wizard.firstrun=1\nWeb.Wizard.firstrun.type=boolean\n"
                                   "Web.Wizard.firstrun.value=1\nWeb.Wizard.firstrun.choices=[0,1]\n"
                                   "Web.Wizard.firstrun.0=0\nWeb.Wizard.firstrun.1=1\n" +
                                   kTail},
        {"getload 0 a=b/c", name + kTail},
        {"getload 0 manual", "main.manual.external=http://www.example.com/manual\n" + name + kTail},
        {"getload", "##Need to specify a session number#\n"},
        {"getload 7 settings", "##Session 7 does not exist#\n"},
        {"firstrun 2", "Web.Wizard.firstrun=0\n"},
        {"firstrun 1", "Web.Wizard.firstrun=1\n"},
        {"firstrun", "Web.Wizard.firstrun=0\n"},
        {"get wizard", "firstrun=0\n"},
    };
    for (const auto &[line, text] : rows)
        EXPECT_EQ(ask(std::string("menu.") + line), (Answer{0, text})) << line;
    EXPECT_EQ(reply("menu.get", kViewer), "");
}

TEST_F(MenuTest, BothListsShareAHundredNames)
{
    std::string names, lines;
    for (int i = 0; i < 98; ++i) {
        names += " N";
        lines += "N=##Parameter not found#\n";
    }
    ASSERT_EQ(0, load("main.p.load = Box.color" + names + "\nmain.p.introspect = X, Y, Z\n", kWizard));
    EXPECT_EQ(reply("menu.getload 0 p"), "Box.color=red\n" + lines + "X=##Parameter not found#\n" + kTail);
    ASSERT_EQ(0, load("main.p.load =" + names + names + "\nmain.p.introspect = X\n", kWizard));
    EXPECT_EQ(reply("menu.getload 0 p"),
              lines + "N=##Parameter not found#\nN=##Parameter not found#\n" + kTail);
}

} // namespace
} // namespace qvcd

#include "commands/wordwrap.h"
#include "commands_fixture.h"

namespace qvcd {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Wordwrap, BreaksBehindTheFirstBlankPastSixty)
{
    const std::string x60(60, 'x');
    const std::pair<std::string, std::string> rows[] = {
        {" a\nb\n", "\t a\nb\n\n"}, // a short text is written as it stands
        {x60.substr(1) + " " + x60 + "  y\n\nz", "\t" + x60.substr(1) + " " + x60 + " \n\ty\n\t\n\tz\n"},
        {x60 + "\n  " + x60 + "\n", "\t" + x60 + "\n\t" + x60 + "\n"},
    };
    for (const auto &[text, lines] : rows)
        EXPECT_EQ(captured([&](std::FILE *out) { wordwrap(out, "\t", 60, text); }), lines) << text;
}

using HelpTest = SelfDescriptionTest;

TEST_F(HelpTest, ManualPages)
{
    const std::string rule = "\n========================================\n\n";
    const std::string seta =
        "NAME\n\tseta - Set an API and mark as applied\n\nSYNOPSIS\n\tAPI or group to set\n\n"
        "NOTES\n\tUsed for internal purposes\n";
    EXPECT_EQ(ask("help.cmd seta", kMaker), (Answer{0, seta}));
    EXPECT_THAT(reply("help.cmd meta", kMaker),
                HasSubstr("SUB-COMMANDS\n\tmeta.get - Get the meta for an API\n"));
    EXPECT_EQ(ask("help.cmd meta"), (Answer{0, ""}));
    EXPECT_THAT(reply("help.cmd all", kMaker), HasSubstr(rule + seta + rule));
    EXPECT_THAT(reply("help.cmd all"), Not(HasSubstr(seta)));
}

TEST_F(HelpTest, ApiPages)
{
    const std::string name =
        "\nNAME    Box.name\n\nName of the box\n\nACCESS TYPE\n\tread write apply\n\n"
        "VALID OPTIONS\nBox.name.type=string_length 1 1023\nBox.name.default=unit\n"
        "Box.name.value=my box\n\t1-1023 \n\nDESCRIPTION\n\tShown on the front panel.\n\n\n";
    const std::string fixed =
        "\nNAME    Box.fixed\n\nNever changes\n\nACCESS TYPE\n\tread \n\nVALID OPTIONS\n\n\n\n";
    const struct {
        unsigned mask;
        const char *command;
        std::string text;
    } rows[] = {
        {kAdmin, "api Box.fixed Nope Box.name", fixed + name},
        {kAdmin, "api Box.shy Box.maker Box.pin", ""},
        {kAdmin, "apihdf Box.name",
         "Box.name.help=Name of the box\nBox.name.desc=Shown on the front panel.\n"},
        {kAdmin, "apihdf Box.pin Box.shy", "Box.pin.desc=Opens the box.\n"},
        {kAdmin, "apihdf Box.pin.desc Box.pin.type", "Box.pin.desc.desc=Opens the box.\n"},
        {0x0333, "apihdf Box", ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(std::string("help.") + row.command, row.mask), (Answer{0, row.text})) << row.command;
    EXPECT_EQ(reply("help.api"), reply("help.api Box"));
    EXPECT_THAT(reply("help.api Box"),
                testing::AllOf(HasSubstr(name), HasSubstr(fixed), Not(HasSubstr("Box.shy"))));
    EXPECT_THAT(reply("help.api Box", kMaker), testing::AllOf(HasSubstr("Box.shy"), HasSubstr("Box.maker")));
}

TEST_F(HelpTest, Browse)
{
    const std::string box = "Box.name=leaf\nBox.color=leaf\nBox.pin=leaf\nBox.clock=leaf\nBox.state=leaf\n"
                            "Box.fixed=leaf\n";
    const std::string web = "Web.Configuration.show_pageload_stats=leaf\nWeb.Wizard.firstrun=leaf\n";
    const struct {
        unsigned mask;
        const char *names;
        Answer answer;
    } rows[] = {
        {kMaker, "", {0, box + "Box.shy=leaf\nBox.maker=leaf\n" + web}},
        {kAdmin, "Nope Web Box.name", {1, "Nope=##Parameter not found#\n" + web + "Box.name=leaf\n"}},
        {kAdmin, "Box.shy", {0, ""}},
        {kAdmin, "Box.maker Box.name", {1, "Box.name=leaf\n"}},
        {kViewer, "Box", {0, box}},
        {0x0333, "", {0, ""}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(std::string("browse ") + row.names, row.mask), row.answer) << row.mask << row.names;
}

} // namespace
} // namespace qvcd

#include "selfdesc_fixture.h"

#include "commands/wordwrap.h"

#include <sstream>

namespace qvcd {
namespace {

std::string wrapped(const std::string &text)
{
    return captured([&](std::FILE *out) { wordwrap(out, "\t", 60, text); });
}

std::string x(std::size_t count)
{
    return std::string(count, 'x');
}

TEST(Wordwrap, BreaksBehindTheFirstBlankPastSixty)
{
    const struct {
        std::string text, lines;
    } rows[] = {
        {"", "\t\n"},
        {x(59), "\t" + x(59) + "\n"},
        {"a b", "\ta b\n"},
        {" a\nb\n", "\t a\nb\n\n"}, // a short text is written as it stands
        {x(60), "\t" + x(60) + "\n"},
        {x(59) + " y", "\t" + x(59) + " y\n"}, // the blank is the sixtieth
        {x(60) + " y", "\t" + x(60) + " \n\ty\n"},
        {x(60) + " ", "\t" + x(60) + " \n"},
        {x(60) + "  y", "\t" + x(60) + " \n\t y\n"}, // the rest is no line that was ended
        {x(60) + "  " + x(60) + " y", "\t" + x(60) + " \n\t" + x(60) + " \n\ty\n"},
        {x(500) + " y " + x(500), "\t" + x(500) + " \n\ty " + x(500) + "\n"},
        {x(30) + "\n" + x(30), "\t" + x(30) + "\n\t" + x(30) + "\n"},
        {x(30) + "\n  " + x(30) + "\n", "\t" + x(30) + "\n\t" + x(30) + "\n"},
        {x(60) + "\n\ny", "\t" + x(60) + "\n\t\n\ty\n"},
        {std::string(61, ' ') + "y", "\t\n\ty\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.lines, wrapped(row.text)) << '"' << row.text << '"';
}

using HelpTest = SelfDescriptionTest;

TEST_F(HelpTest, ManualPages)
{
    const std::string rule = "\n========================================\n\n";
    const std::string seta =
        "NAME\n\tseta - Set an API and mark as applied\n\nSYNOPSIS\n\tAPI or group to set\n\n"
        "NOTES\n\tUsed for internal purposes\n";
    const std::string meta =
        "NAME\n\tmeta - Get the metadata for an API or group\n\nSYNOPSIS\n\tName of metadata to look up\n\n"
        "RETURN VALUES\n\tMetadata name and value\n\nSUB-COMMANDS\n\tmeta.get - Get the meta for an API\n"
        "\tmeta.dump - Get the meta for an API\n";
    EXPECT_EQ((Answer{0, seta}), ask("help", kMaker, {"cmd", "seta"}));
    EXPECT_EQ((Answer{0, meta}), ask("help", kMaker, {"cmd", "meta"}));
    EXPECT_EQ((Answer{0, ""}), ask("help", kAdmin, {"cmd", "meta"}));
    EXPECT_EQ((Answer{0, ""}), ask("help", kMaker, {"cmd", "nothing"}));
    const std::string login = ask("help", kAdmin, {"cmd", "login"}).text;
    EXPECT_NE(std::string::npos, login.find("\nSYNOPSIS\n"));
    EXPECT_NE(std::string::npos, login.find("\nRETURN VALUES\n"));
    EXPECT_EQ(std::string::npos, login.find("\nERRORS\n"));
    const std::string all = ask("help", kMaker, {"cmd", "all"}).text;
    EXPECT_TRUE(all.starts_with(rule + "NAME\n\tundefined - Undefined command\n\nDESCRIPTION\n"));
    EXPECT_NE(std::string::npos, all.find(rule + seta + rule));
    EXPECT_EQ(std::string::npos, ask("help", kAdmin, {"cmd", "all"}).text.find(seta));
}

TEST_F(HelpTest, EveryPageFitsATerminal)
{
    for (const CommandRow &row : cmd_map()) {
        const std::string page = ask("help", kMaker, {"cmd", row.record->name}).text;
        std::istringstream lines(page);
        for (std::string line; std::getline(lines, line);) {
            const bool text = line.starts_with('\t');
            // The fixed texts of "profile" are a little wider.
            const bool fixed = std::string_view(row.record->name) == "profile";
            EXPECT_LE(line.size() + (text ? 7 : 0), fixed ? 82U : 80U) << row.record->name << ": " << line;
            // Only titles stand at the margin: a text with lines of its own must be long enough to be
            // wrapped.
            EXPECT_TRUE(text || line.find_first_of("abcdefghijklmnopqrstuvwxyz#") == std::string::npos)
                << row.record->name << ": " << line;
        }
    }
}

TEST_F(HelpTest, ApiPages)
{
    const std::string name =
        "\nNAME    Box.name\n\nName of the box\n\nACCESS TYPE\n\tread write apply\n\n"
        "VALID OPTIONS\nBox.name.type=string_length 1 1023\nBox.name.default=unit\n"
        "Box.name.value=my box\n\t1-1023 \n\nDESCRIPTION\n\tShown on the front panel.\n\n\n";
    const std::string color = "\nNAME    Box.color\n\nColor of the box\n\nACCESS TYPE\n\tread write apply\n\n"
                              "VALID OPTIONS\nBox.color.type=string_set red blue\nBox.color.default=red\n"
                              "Box.color.value=red\n\tred blue \n\n\n";
    const std::string clock =
        "\nNAME    Box.clock\n\nClock of the box\n\nACCESS TYPE\n\tread write apply\n\n"
        "VALID OPTIONS\nBox.clock.type=timecode\nBox.clock.value=20240229T12:00:00\n\n\n\n";
    const std::string fixed =
        "\nNAME    Box.fixed\n\nNever changes\n\nACCESS TYPE\n\tread \n\nVALID OPTIONS\n\n\n\n";
    const std::string shy =
        "\nNAME    Box.shy\n\nHidden\n\nACCESS TYPE\n\tread write apply\n\nVALID OPTIONS\n\n\n\n";
    const std::string maker =
        "\nNAME    Box.maker\n\nFor the maker\n\nACCESS TYPE\n\t\n\nVALID OPTIONS\n\n\n\n";
    const struct {
        unsigned mask;
        Args args;
        std::string text;
    } rows[] = {
        {kAdmin, {"api", "Box.color", "Nope", "Box.name"}, color + name},
        {kAdmin, {"api"}, name + color + clock + fixed},
        {kAdmin, {"api", "Box"}, name + color + clock + fixed},
        {kMaker, {"api", "Box"}, name + color + clock + fixed + shy + maker},
        {kAdmin, {"api", "Box.shy", "Box.maker", "Box.pin", ""}, ""},
        {kAdmin,
         {"apihdf", "Box.name"},
         "Box.name.help=Name of the box\nBox.name.desc=Shown on the front panel.\n"},
        {kAdmin, {"apihdf", "Box.pin", "Box.shy"}, "Box.pin.desc=Opens the box.\n"},
        {kAdmin, {"apihdf", "Box.pin.desc", "Box.pin.type"}, "Box.pin.desc.desc=Opens the box.\n"},
        {0x0333, {"apihdf", "Box"}, ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ((Answer{0, row.text}), ask("help", row.mask, row.args)) << row.args.back();
}

TEST_F(HelpTest, AskingForATextLeavesNothingBelowIt)
{
    ask("help", kAdmin, {"api", "Box.name"}); // fills what lookups store on the API itself
    const std::string before = tree_text(metaDB);
    ask("help", kAdmin, {"api", "Box.name.help", "Box.name.type"});
    ask("help", kAdmin, {"apihdf", "Box.name.desc", "Box.pin.desc"});
    ask("apply", kAdmin, {"Box.name.help"});
    EXPECT_EQ(before, tree_text(metaDB));
}

TEST_F(HelpTest, Browse)
{
    const std::string box = "Box.name=leaf\nBox.color=leaf\nBox.pin=leaf\nBox.clock=leaf\nBox.state=leaf\n"
                            "Box.fixed=leaf\n";
    const std::string web = "Web.Configuration.show_pageload_stats=leaf\nWeb.Wizard.firstrun=leaf\n";
    const struct {
        unsigned mask;
        Args args;
        Answer answer;
    } rows[] = {
        {kAdmin, {}, {0, box + web}},
        {kMaker, {}, {0, box + "Box.shy=leaf\nBox.maker=leaf\n" + web}},
        {kAdmin, {"Web", "Box.name"}, {0, web + "Box.name=leaf\n"}},
        {kAdmin, {"Nope", "Web"}, {1, "Nope=##Parameter not found#\n" + web}},
        {kAdmin, {""}, {1, "=##Parameter not found#\n"}},
        {kAdmin, {"Box.shy"}, {0, ""}},
        {kAdmin, {"Box.maker", "Box.name"}, {1, "Box.name=leaf\n"}},
        {kViewer, {"Box"}, {0, box}},
        {0x0333, {}, {0, ""}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.answer, ask("browse", row.mask, row.args))
            << row.mask << testing::PrintToString(row.args);
}

} // namespace
} // namespace qvcd

#include "client/reply.h"

#include <gtest/gtest.h>

#include "client/completion.h"
#include "client/errors.h"
#include "client/local_commands.h"

namespace qvcd::client {

using Lines = std::vector<std::string>;

namespace {

struct Parsed {
    Lines lines;
    std::optional<int> result;
};

Parsed parse(const std::string &text, std::size_t piece)
{
    Parsed parsed;
    ReplyParser parser([&](std::string_view line) { parsed.lines.emplace_back(line); });
    for (std::size_t at = 0; at < text.size(); at += piece)
        parser.feed(std::string_view(text).substr(at, piece));
    parsed.result = parser.result();
    return parsed;
}

} // namespace

TEST(ClientReply, IsTheSameWhateverThePieces)
{
    const std::string text = "A=1\n\n@x\nB=##Parameter not found#\n@\n-3\nrest";
    for (std::size_t piece = 1; piece <= text.size(); piece++) {
        const Parsed parsed = parse(text, piece);
        EXPECT_EQ(parsed.lines, Lines({"A=1", "", "@x", "B=##Parameter not found#"})) << piece;
        EXPECT_EQ(parsed.result, -3) << piece;
    }
    EXPECT_EQ(parse("A=1\n@\n1", 4).result, std::nullopt) << "its line has not ended";
}

TEST(ClientReply, WithoutACodeIsAnError)
{
    for (const char *text : {"@\n\n", "@\nok\n", "@\n1x\n", "@\n99999999999\n"})
        EXPECT_THROW(parse(text, 1), WireError) << text;
}

TEST(ClientReply, ResultsAreExitStatuses)
{
    for (const auto &[result, status] : {std::pair{0, 0}, {255, 255}, {256, 1}, {-1, 255}, {-256, 1}})
        EXPECT_EQ(exit_status(result), status) << result;
}

TEST(ClientWatch, EventsAreOneLineEach)
{
    EXPECT_EQ(
        event_text(R"({"identity":"qvc","class":"event","event":"set","payload":"A.B=x\ny","topic":"t"})"),
        "set A.B=x%0Ay");
    for (const char *json : {"", "{", "[]", R"({"event":"set"})", R"({"event":1,"payload":"x"})"})
        EXPECT_ANY_THROW(event_text(json)) << json;
}

TEST(ClientCompletion, CommandsAndSubcommandsComeFromHelp)
{
    EXPECT_EQ(parse_command_list("get: Get a parameter or group\n\nno command\nuser: Do: this\n"),
              Lines({"get", "user"}));
    EXPECT_EQ(parse_subcommands(
                  "NAME\n\tuser - text\n\nSUB-COMMANDS\n\tuser.list - List - all\n\tuser.add - Add\n"),
              Lines({"user.list", "user.add"}));
    EXPECT_TRUE(parse_subcommands("NAME\n\tget - Get\n").empty());
}

TEST(ClientCompletion, NamesGrowPartByPart)
{
    const std::string names = "Net.Lan.ip=leaf\nNet.Lan.mask=leaf\nNet.name=leaf\nName=leaf\n";
    const struct {
        std::string prefix, end;
        Lines parts;
    } cases[] = {
        {"", "", {"Name", "Net."}},
        {"N", "=", {"Name=", "Net."}},
        {"Net.", "=", {"Net.Lan.", "Net.name="}},
        {"Net.Lan.m", "", {"Net.Lan.mask"}},
        {"X", "", {}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(next_name_parts(names, c.prefix, c.end), c.parts) << c.prefix;
}

} // namespace qvcd::client

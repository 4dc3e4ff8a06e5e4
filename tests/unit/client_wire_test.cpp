#include "client/command.h"
#include "client/completion.h"
#include "client/errors.h"
#include "client/local_commands.h"
#include "client/options.h"
#include "client/reply.h"
#include "client/typed_line.h"
#include "platform/socket.h"
#include "qvclient/escape.h"

#include <gtest/gtest.h>

namespace qvcd::client {

using Arguments = std::vector<std::string>;
using Lines = std::vector<std::string>;
using std::chrono::milliseconds;

TEST(ClientEscape, EachWordIsOneWordOnTheWire)
{
    const struct {
        std::vector<std::string> words;
        std::string line;
    } cases[] = {
        {{"get", "A.B", "C"}, "get A.B C"},
        {{"set", "A.b=x y,z"}, "set A.b=x%20y%2Cz"},
        {{"set", "A=rtsp://h:554/1-a.~@_"}, "set A=rtsp://h:554/1-a.~@_"},
        {{"set", std::string("A=#\t\x7f\xff+") + '\0'}, "set A=%23%09%7F%FF%2B%00"},
        {{"set", "A=b=c\nset D=1"}, "set A=b%3Dc%0Aset%20D%3D1"},
        {{"export", "/tmp/50%.hdf", "2"}, "export /tmp/50%.hdf 2"},
        {{"login", "ann lee", "p=a,b%"}, "login ann%20lee p%3Da%2Cb%25"},
        {{"commit", "-m", "a=b, \"c\"", "A=x y"}, "commit -m a%3Db%2C%20%22c%22 A=x%20y"},
        {{"rollback", "-1", "-m", "-m", "-c", "9"}, "rollback -1 -m -m -c 9"},
        {{"user", "passwd", "ann", "a b"}, "user passwd ann a%20b"},
        {{"preset.load_name", "Evening show, 5%"}, "preset.load_name Evening%20show%2C%205%25"},
        {{"profile", "copy", "a b", "c%"}, "profile copy a%20b c%"},
        {{"commit", "-m", "", "A=1", "-m"}, "commit A=1 -m"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(wire_line(c.words), c.line);
}

TEST(ClientEscape, WhatTheWireCannotSayIsRefused)
{
    const std::vector<std::string> cases[] = {
        {""},
        {"get A"},
        {"get,set"},
        {"get", ""},
        {"get", "A\nset A=1"},
        {"set", "=1"},
        {"set", "A,B=1"},
        {"login", "ann", ""},
        {"profile.copy", "a", "b c"},
        {"commit", "-n", "a b"},
        {"document", "5"},
        {"set", "A=" + std::string(kMaxLineBytes, 'x')},
    };
    for (const auto &words : cases)
        EXPECT_THROW(wire_line(words), UsageError) << words.back().substr(0, 20);
}

TEST(ClientEscape, TypedLinesSplitAsInAShell)
{
    const struct {
        std::string line;
        std::vector<std::string> words;
    } cases[] = {
        {"  \t \n", {}},
        {"# set A=1\n", {}},
        {" get  A.B\tC \n", {"get", "A.B", "C"}},
        {"set 'A=x y' \"B=1,2\" C=a\\ b\n", {"set", "A=x y", "B=1,2", "C=a b"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(split_typed_line(c.line), c.words) << c.line;
    EXPECT_THROW(split_typed_line("set 'A=x"), UsageError);
    EXPECT_THROW(split_typed_line("set \"A=x\n"), UsageError);
}

TEST(ClientEscape, HelpAsksForCommandsAndSettings)
{
    EXPECT_EQ(help_lines({"help"}), Lines({"help.cmd"}));
    EXPECT_EQ(help_lines({"help", "user.add"}), Lines({"help.cmd user", "help.api user.add"}));
    EXPECT_EQ(help_lines({"help", "apihdf", "A"}), Lines({"help apihdf A"}));
}

TEST(ClientOptions, EndAtTheCommand)
{
    const Options options = parse_options({"-s", "17", "-t0.5", "-H", "box:8080", "set", "-s", "A=-t"});
    EXPECT_EQ(options.session, 17);
    EXPECT_EQ(options.timeout, milliseconds(500));
    EXPECT_EQ(options.endpoint.text(), "box:8080");
    EXPECT_EQ(options.words, Arguments({"set", "-s", "A=-t"}));
    EXPECT_EQ(options.action, Options::Action::run);
}

TEST(ClientOptions, WhatWaitsForScriptsHasMoreTime)
{
    const Options options = parse_options({"commit"});
    for (const char *slow : {"commit", "rollback", "abort", "apply", "preset.load_apply"})
        EXPECT_GT(options.limits(slow).whole, options.limits("get").whole) << slow;
    EXPECT_EQ(options.limits("commit").connect, options.limits("get").connect);
    EXPECT_EQ(parse_options({"-t", "5"}).limits("commit").whole, milliseconds(5000));
}

TEST(ClientOptions, CommandsOfChangesAnswerInJsonThemselves)
{
    EXPECT_TRUE(parse_options({"--json", "diff", "saved"}).json);
    EXPECT_EQ(in_json({"diff", "saved"}), Arguments({"diff", "-j", "saved"}));
    for (const char *other : {"get", "watch", "commit.x", ""})
        EXPECT_EQ(in_json({other}), Arguments({other}));
}

TEST(ClientOptions, HelpAndVersionWinOverWhatFollows)
{
    EXPECT_EQ(parse_options({"--help", "--bogus"}).action, Options::Action::help);
    EXPECT_EQ(parse_options({"-s", "1", "--version"}).action, Options::Action::version);
    EXPECT_EQ(parse_options({"get", "--help"}).action, Options::Action::run);
}

TEST(ClientOptions, Endpoints)
{
    const Endpoint endpoint = parse_options({"-H", "[::1]:65535"}).endpoint;
    EXPECT_EQ(endpoint.host + " " + endpoint.port, "::1 65535");
    EXPECT_EQ(endpoint.text(), "[::1]:65535");
}

TEST(ClientOptions, WrongOnesAreRefused)
{
    const struct {
        const char *option;
        Arguments values;
    } rows[] = {
        {"-s", {"x", "-1", "1x", "", "2147483648"}},
        {"-t", {"0", "-1", "nan", "inf", "86401", "5s"}},
        {"-H", {"box", ":80", "box:", "box:0", "box:65536", "::1:80", "[]:80", "box:http", ""}},
    };
    for (const auto &row : rows) {
        for (const std::string &value : row.values)
            EXPECT_THROW(parse_options({row.option, value}), UsageError) << row.option << " " << value;
    }
    const Arguments others[] = {{"--bogus"},
                                {"-s"},
                                {"--tls"},
                                {"-H", "box:80", "--ca", "f"},
                                {"-H", "box:80", "--tls", "--cert", "f"},
                                {"-H", "box:80", "--tls", "--ca", ""}};
    for (const auto &arguments : others)
        EXPECT_THROW(parse_options(arguments), UsageError) << arguments.back();
}

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

TEST(ClientReply, EndsAtTheLastMarkWhateverThePieces)
{
    const std::string error = "B=##Parameter not found#";
    const struct {
        std::string text;
        Lines lines;
        std::optional<int> result;
    } cases[] = {
        {"A=1\n\n@x\n" + error + "\n@\n-3\n", {"A=1", "", "@x", error}, -3},
        {"@\n0\n", {}, 0},
        {"@\n@\n@\n1\n", {"@", "@"}, 1},
        {"@\n0\n@\n7\n", {"@", "0"}, 7},
        {"@\n0\n5\n@\n@\nx\n@\n2\n", {"@", "0", "5", "@", "@", "x"}, 2},
        {"A=1\n@\n1", {"A=1"}, std::nullopt},
        {"@\n1\nrest", {}, std::nullopt},
        {"@\n1x\n", {"@", "1x"}, std::nullopt},
        {"@\n99999999999\n", {"@", "99999999999"}, std::nullopt},
    };
    for (const auto &c : cases) {
        for (std::size_t piece = 1; piece <= c.text.size(); piece++) {
            const Parsed parsed = parse(c.text, piece);
            EXPECT_EQ(parsed.lines, c.lines) << c.text << piece;
            EXPECT_EQ(parsed.result, c.result) << c.text << piece;
        }
    }
}

TEST(ClientReply, ErrorsStandInPlaceOfValues)
{
    const struct {
        std::string line, name, value;
        std::optional<std::string> error;
    } cases[] = {
        {"A=1=2", "A", "1=2", {}},
        {"A=##Invalid port number format#: a#b", "A", "##Invalid port number format#: a#b",
         "Invalid port number format"},
        {"##can not write /tmp/a=b#c#", "", "##can not write /tmp/a=b#c#", "can not write /tmp/a=b#c"},
        {"A=9=##Parameter not found#", "A", "9=##Parameter not found#", "Parameter not found"},
        {"A=##", "A", "##", {}},
        {"A=###", "A", "###", {}},
        {"A=## note", "A", "## note", {}},
        {"a text", "", "a text", {}},
    };
    for (const auto &c : cases) {
        const ReplyLine line = parse_reply_line(c.line);
        EXPECT_EQ(line.name, c.name) << c.line;
        EXPECT_EQ(line.value, c.value) << c.line;
        EXPECT_EQ(line.error, c.error) << c.line;
    }
    EXPECT_TRUE(says_error("user.passwd", 0, "User.bob.passwd=##Invalid permission#"));
    EXPECT_TRUE(says_error("get", 1, "A=##Parameter not found#"));
    EXPECT_FALSE(says_error("get", 0, "A=##a value#")) << "the result says that nothing failed";
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

TEST(ClientCompletion, NamesGrowPartByPart)
{
    const std::string names = "Net.Lan.ip=leaf\nNet.Lan.mask=leaf\nNet.name=leaf\nName=leaf\n";
    const struct {
        std::string prefix, end;
        Lines parts;
    } cases[] = {
        {"", "", {"Name", "Net."}},
        {"Net.", "=", {"Net.Lan.", "Net.name="}},
        {"Net.Lan.m", "", {"Net.Lan.mask"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(next_name_parts(names, c.prefix, c.end), c.parts) << c.prefix;
}

TEST(ClientReply, ALineWithoutAnEndIsNotKept)
{
    ReplyParser parser([](std::string_view) {});
    const std::string piece(std::size_t{1} << 20, 'x');
    std::size_t fed = 0;
    EXPECT_THROW(for (; fed <= 2 * kMostReplyLineBytes; fed += piece.size()) parser.feed(piece), WireError);
    EXPECT_EQ(fed, kMostReplyLineBytes);
}

} // namespace qvcd::client

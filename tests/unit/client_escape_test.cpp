#include "client/escape.h"

#include <gtest/gtest.h>

#include "client/errors.h"
#include "client/local_commands.h"
#include "client/typed_line.h"
#include "platform/socket.h"

namespace qvcd::client {

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
        {"commit", "-m", ""},
        {"commit", "-n", "a b"},
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
    using Lines = std::vector<std::string>;
    EXPECT_EQ(wire_lines({"help"}), Lines({"help.cmd"}));
    EXPECT_EQ(wire_lines({"help", "user.add"}), Lines({"help.cmd user", "help.api user.add"}));
    EXPECT_EQ(wire_lines({"help", "apihdf", "A"}), Lines({"help apihdf A"}));
}

} // namespace qvcd::client

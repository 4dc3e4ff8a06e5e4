#include "client/errors.h"
#include "client/level.h"
#include "client/password_type.h"
#include "client/plain_command.h"
#include "client/shell_line.h"
#include "client/shell_words.h"
#include "platform/password_type.h"

#include <gtest/gtest.h>

namespace qvcd::client {

namespace {

// The words between "/", the filters behind "|", the steps behind ";".
std::string parsed(const std::string &line)
{
    std::string text;
    for (const Step &step : parse_shell_line(line)) {
        text += text.empty() ? "" : ";";
        for (const std::string &word : step.words)
            text += "/" + word;
        text += std::string(step.filters.size(), '|');
    }
    return text;
}

} // namespace

TEST(ClientShell, LinesFallIntoCommandsAndFilters)
{
    const struct {
        std::string line, parts;
    } cases[] = {
        {"", ""},
        {" \t", ""},
        {"# get A; set B=1", ""},
        {"get A#1 # 2", "/get/A#1/#/2"},
        {"get A;set B='1;2|3' ;", "/get/A;/set/B=1;2|3"},
        {"get A|match 'x y'|count;x", "/get/A||;/x"},
        {R"(set A=a\ \;b "C=\"" '' D='\')", R"(/set/A=a ;b/C="//D=\)"},
        {"set A=日本\\ é", "/set/A=日本 é"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(parsed(c.line), c.parts) << c.line;
    for (const char *wrong : {"a 'b", "a \"b", "a b\\", ";", ";a", "a;;b", "a|", "|count", "a|;b", "a|match",
                              "a|match x y", "a|count x", "a|grep x", "a|match (", "a|'match' [z-a]"})
        EXPECT_THROW(parse_shell_line(wrong), UsageError) << wrong;
}

TEST(ClientShell, WordsAreTypedSoThatTheyComeBack)
{
    for (const std::string word : {"A.b=x", "Evening show", "a'b\"c\\d;e|f\tg", "日本 é"}) {
        const Tokens tokens = tokenize(typed_form(word), Separators::blanks_and_bars);
        ASSERT_EQ(tokens.list.size(), 1U) << word;
        EXPECT_EQ(tokens.list[0].text, word);
        EXPECT_FALSE(tokens.open);
    }
}

TEST(ClientShell, FiltersChooseLines)
{
    LineFilter match({"match", "^Net.*(ip|mtu)"});
    LineFilter except({"except", "ETH0"});
    LineFilter count({"count"});
    for (const auto &[line, first, second] : {std::tuple{"Network.Eth0.ip=1", true, false},
                                              {"network.wlan0.MTU=2", true, true},
                                              {"A=Network.ip", false, true}}) {
        EXPECT_EQ(match.take(line), first) << line;
        EXPECT_EQ(except.take(line), second) << line;
        EXPECT_FALSE(count.take(line));
    }
    EXPECT_EQ(count.end(), "3");
    EXPECT_EQ(match.end(), "");
}

TEST(ClientShell, NamesCountFromTheLevel)
{
    const struct {
        Words typed, whole;
    } cases[] = {
        {{"get"}, {"get", "N.I"}},
        {{"get", "a,.B.c"}, {"get", "N.I.a,B.c"}},
        {{"save", "."}, {"save"}},
        {{"set", "a=1", ".B=x.y=2", "word"}, {"set", "N.I.a=1", "B=x.y=2", "word"}},
        {{"commit", "-m", "a=b", "-c", "9", "a=1"}, {"commit", "-m", "a=b", "-c", "9", "N.I.a=1"}},
        {{"diff", "saved"}, {"diff", "saved", "N.I"}},
        {{"history", "-n", "5"}, {"history", "-n", "5", "N.I"}},
        {{"default"}, {"default", "N.I"}},
        {{"user", "passwd", "bob"}, {"user.passwd", "bob"}},
        {{"profile.save", "p", "a"}, {"profile.save", "p", "N.I.a"}},
        {{"preset.store", "2"}, {"preset.store", "2"}},
        {{"help", "get"}, {"help", "get"}},
        {{"help", "a"}, {"help", "N.I.a"}},
        {{"get", ""}, {"get", ""}},
        {{"factory_reset"}, {"factory_reset"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(in_level("N.I", c.typed), c.whole) << c.typed[0];
    EXPECT_EQ(in_level("", {"get"}), Words({"get"}));
    for (const auto &[level, typed, behind] : {std::tuple{"N.I", "..", "N"},
                                               {"N", "..", ""},
                                               {"", "..", ""},
                                               {"N", "I.", "N.I"},
                                               {"N", ".M", "M"},
                                               {"N", ".", ""}})
        EXPECT_EQ(level_behind(level, typed), behind) << level << " " << typed;
}

TEST(ClientShell, PasswordsAreKnownByTheirType)
{
    for (const char *type : {"password", "password 1 32", "blank,password 8 63", "blank, password_old\t8"})
        EXPECT_TRUE(is_password_type(type)) << type;
    for (const char *type :
         {"", ",", "string", "string_set password2", "string_set yes prohibit-password no"})
        EXPECT_FALSE(is_password_type(type)) << type;
    for (const char *argument : {"A=?", "A=-", "A=@f", "A=\\?", "A=\\\\@"})
        EXPECT_TRUE(is_special_value(argument)) << argument;
    for (const char *argument : {"A", "?", "@f", "A=", "A=-5", "A=?x", "A=\\", "A=\\\\server", "A=a@b"})
        EXPECT_FALSE(is_special_value(argument)) << argument;
}

} // namespace qvcd::client

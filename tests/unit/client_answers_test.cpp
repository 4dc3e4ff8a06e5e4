#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "client/json_answer.h"
#include "client/name_globs.h"
#include "client/nested_text.h"
#include "client/screen.h"
#include "client/type_words.h"
#include "qvclient/typed_value.h"

namespace qvcd::client {

using Texts = std::vector<std::string>;

// No value is shown as another one than it is: what a number would not give back stays a text.
TEST(ClientAnswers, ValuesHaveTheTypeThatTheirSettingHas)
{
    const std::tuple<const char *, const char *, const char *> rows[] = {
        {"boolean", "1", "true"},
        {"boolean", "0", "false"},
        {"boolean", "yes", "\"yes\""},
        {"integer_range 0 9,blank", "7", "7"},
        {"integer_range 0 9,blank", "", "\"\""},
        {"signed_integer", "-3", "-3"},
        {"integer", "007", "\"007\""},
        {"integer", "-0", "\"-0\""},
        {"integer", "12abc", "\"12abc\""},
        {"integer", "9223372036854775807", "9223372036854775807"},
        {"integer", "9223372036854775808", "\"9223372036854775808\""},
        {"portnumber", "80", "80"},
        {"float_range 0 1", "0.5", "0.5"},
        {"float", "nan", "\"nan\""},
        {"float", "1e999", "\"1e999\""},
        {"string_set 1 2", "1", "\"1\""},
        {"", "1", "\"1\""},
    };
    for (const auto &[type, value, json] : rows)
        EXPECT_EQ(one_json_line(typed_value(type, value)), json) << type;
    EXPECT_EQ(one_json_line("a\xff\"\n"), "\"a\xef\xbf\xbd\\\"\\n\"");
}

TEST(ClientAnswers, NestedTextBecomesObjects)
{
    const Texts sessions{"Session {", "  0 {", "    user = root", "    ip = a = b", "  }", "  1 {",
                         "  }",       "}"};
    EXPECT_EQ(one_json_line(*parse_nested(sessions)),
              R"({"Session":{"0":{"user":"root","ip":"a = b"},"1":{}}})");
    EXPECT_EQ(one_json_line(*parse_nested({"A = 1", "A {", "  b = 2", "}"})), R"({"A":{"":"1","b":"2"}})");
    for (const Texts &other :
         std::vector<Texts>{{}, {"A {"}, {"}"}, {"A=1"}, {"A {", "x", "}"}, Texts(99, "A {")})
        EXPECT_FALSE(parse_nested(other));
}

TEST(ClientAnswers, PatternsStayWithinOnePart)
{
    const Texts apis{"A.b.port", "A.c.port", "A.c.name", "A.port", "Top"};
    EXPECT_EQ(matching_names("A.*.port", apis, true), Texts({"A.b.port", "A.c.port"}));
    EXPECT_EQ(matching_names("A.*", apis, true), Texts({"A.b", "A.c", "A.port"}));
    EXPECT_EQ(matching_names("A.*", apis, false), Texts({"A.port"}));
    EXPECT_EQ(matching_names("*", apis, true), Texts({"A", "Top"}));
    EXPECT_EQ(matching_names("?.[!b].n*", apis, false), Texts({"A.c.name"}));
    for (const char *nothing : {"", ".", "A.", "*.*.*.*", "[", "a.*", "*port"})
        EXPECT_EQ(matching_names(nothing, apis, true), Texts()) << nothing;
}

TEST(ClientAnswers, WhatASettingTakes)
{
    const std::pair<Texts, const char *> rows[] = {
        {{"A.type=integer_range 0 9", "A.min=0", "A.max=9"}, "0 to 9"},
        {{"A.type=string_length 0 9"}, "up to 9 characters"},
        {{"A.type=blank,password 8 63"}, "empty, or a password of 8 to 63 characters"},
        {{"A.type=password"}, "a password of 1 to 256 characters"},
        {{"A.type=blank,ip6address,domainname"},
         "empty, or an IPv6 address, or a domain name or an IPv4 address"},
        {{"A.type=string_set on off", "A.choices=[on,off]"}, "one of on, off"},
        {{"A.type=string_set", "A.choices=[]"}, ""},
        {{"A.type=profile", "A.choices=[default,night]"}, "one of default, night"},
        {{"A.type=url http https"}, "an address that begins with http:// or https://"},
        {{"A.type=unheard_of 1"}, "a value of type unheard_of"},
        {{"B.type=integer_range 1 9"}, ""},
        {{"A.type=,"}, ""},
        {{}, ""},
    };
    for (const auto &[lines, text] : rows)
        EXPECT_EQ(allowed_values(lines, "A"), text);
    std::string many = "A.type=integer_set 0";
    for (int i = 1; i < 100; ++i)
        many += " " + std::to_string(i);
    EXPECT_TRUE(allowed_values(Texts{many}, "A").ends_with(", 19, ..."));
}

TEST(ClientAnswers, ColumnsAreAsWideAsTheirNames)
{
    EXPECT_EQ(in_columns({{"a", "1"}, {"ü", "2"}, {"long", "3"}, {"none", ""}}),
              Texts({"a     1", "ü     2", "long  3", "none"}));
    const std::string longest(100, 'x');
    EXPECT_EQ(in_columns({{longest, "1"}})[0], longest + "  1");
}

} // namespace qvcd::client

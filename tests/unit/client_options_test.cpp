#include "client/options.h"

#include <gtest/gtest.h>

#include "client/command.h"
#include "client/errors.h"

namespace qvcd::client {

using Arguments = std::vector<std::string>;
using std::chrono::milliseconds;

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

TEST(ClientOptions, JsonIsForChangesOnly)
{
    EXPECT_TRUE(parse_options({"--json", "diff", "saved"}).json);
    EXPECT_EQ(in_json({"diff", "saved"}), Arguments({"diff", "-j", "saved"}));
    for (const char *other : {"get", "watch", "commit.x", ""})
        EXPECT_THROW(in_json({other}), UsageError) << other;
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

} // namespace qvcd::client

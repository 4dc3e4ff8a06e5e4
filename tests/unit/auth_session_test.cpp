#include "auth_root.h"

#include "auth/server_login.h"
#include "auth/session_list.h"
#include "base/options.h"
#include "platform/crypto.h"

#include <ctime>

namespace qvcd {
namespace {

using SessionTest = AuthTest;

int login(std::string_view name, std::string_view password, std::optional<std::string_view> ip = std::nullopt)
{
    return session_login(name, password, ip, std::nullopt);
}

std::string field(int n, const char *name)
{
    return session_get_hdf(n).get_or(name, "(none)");
}

TEST_F(SessionTest, WithoutSessionCheckingZeroIsOnTheList)
{
    EXPECT_EQ("", list());
    session_load_db_file(1);
    EXPECT_EQ("0\n", list());
}

TEST_F(SessionTest, LoginWritesTheSession)
{
    const int n = session_login("viewer", "a b", "10.0.0.7", "web");
    ASSERT_GE(n, 10);
    ASSERT_LE(n, 97612903);
    EXPECT_EQ("viewer", field(n, "user"));
    EXPECT_EQ("77", field(n, "perm"));
    EXPECT_EQ("2", field(n, "group"));
    EXPECT_EQ("10.0.0.7", field(n, "ip"));
    EXPECT_EQ("web", field(n, "server"));
    const std::string time = field(n, "login");
    std::tm parsed{};
    const char *end = strptime(time.c_str(), "%a %b %e %H:%M:%S %Y", &parsed);
    EXPECT_TRUE(end && *end == '\0') << time;
    EXPECT_EQ(std::to_string(n) + "\n", list());
    EXPECT_EQ(0600U, mode_of("tmp/current_sessions"));

    const int local = login("admin", "kelpo");
    EXPECT_EQ("777", field(local, "perm"));
    EXPECT_EQ("local", field(local, "ip"));
    EXPECT_EQ("local", field(local, "server"));
}

TEST_F(SessionTest, RefusedLogins)
{
    const std::string long_name(5000, 'x');
    const struct {
        std::string name;
        std::optional<std::string> password;
        int result;
    } rows[] = {
        {"nobody", "kelpo", kUnknownUser},
        {"", "kelpo", kUnknownUser},
        {"admin ", "kelpo", kUnknownUser},
        {"admin.passwd", "kelpo", kUnknownUser},
        {"%61dmin", "kelpo", kUnknownUser},
        {"admin:", "kelpo", kUnknownUser},
        {"a\nb:admin", "kelpo", kUnknownUser},
        {"x:nobody:admin", "kelpo", kUnknownUser},
        {"root", "", kUnknownUser},
        {long_name, "kelpo", kUnknownUser},
        {long_name + ":admin", "kelpo", kUnknownUser}, // cut before the colon
        {"admin", std::nullopt, kWrongPassword},
        {"admin", "", kWrongPassword},
        {"admin", "KELPO", kWrongPassword},
        {"admin", "kelpo ", kWrongPassword},
        {"x:admin", "kelp", kWrongPassword},
        {"silent", "", kWrongPassword}, // no password is stored
        {"silent", "x", kWrongPassword},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.result, session_login(row.name, row.password, {}, {})) << row.name.substr(0, 40);
    EXPECT_EQ("", list());
    EXPECT_FALSE(session_get_hdf(0).next());
}

TEST_F(SessionTest, SameUserFromTheSameAddressGetsTheSameSession)
{
    const int local = login("admin", "kelpo");
    EXPECT_EQ(local, login("admin", "kelpo"));
    EXPECT_EQ(local, login("admin", "kelpo", "local"));
    const int away = login("admin", "kelpo", "10.0.0.7");
    EXPECT_NE(local, away);
    EXPECT_EQ(away, login("admin", "kelpo", "10.0.0.7"));
    EXPECT_NE(away, login("viewer", "a b", "10.0.0.7"));
    EXPECT_EQ(away, login("10.0.0.7:admin", "kelpo")); // the prefix is the address
}

TEST_F(SessionTest, PrefixGivesANumberThatClientsCanCompute)
{
    const int n = session_login("box:admin:more", "kelpo", "10.0.0.7", "web");
    EXPECT_EQ(qvcrypto_get_md5_session("box:admin:kelpo"), n);
    EXPECT_EQ("admin", field(n, "user"));
    EXPECT_EQ("box", field(n, "ip"));
    EXPECT_EQ("web", field(n, "server"));
    EXPECT_EQ(n, login("box:admin", "kelpo"));
    EXPECT_EQ(std::to_string(n) + "\n", list());
}

TEST_F(SessionTest, Logout)
{
    const int first = login("admin", "kelpo");
    const int second = login("admin", "kelpo", "10.0.0.7");
    EXPECT_EQ(0, session_logout(0));
    EXPECT_EQ(-1, session_logout(9));
    EXPECT_EQ(-1, session_logout(-first));
    EXPECT_EQ(0, session_logout(first));
    EXPECT_EQ(-1, session_logout(first));
    EXPECT_EQ(std::to_string(second) + "\n", list());
    EXPECT_TRUE(session_get_hdf(0));
    EXPECT_EQ("admin", session_get_user(second));
    EXPECT_EQ(std::nullopt, session_get_user(first));
    session_unload_db_file();
    EXPECT_EQ("", list());
    EXPECT_EQ(kUnknownUser, login("nobody", "x"));
}

TEST_F(SessionTest, GetKeepsTheMaskOfASessionWithoutOne)
{
    SessionFacts facts{"x", "y", 5};
    sessionDB.remove("Session.0.perm");
    EXPECT_EQ(0, session_get(0, facts));
    EXPECT_EQ("root", facts.user);
    EXPECT_EQ(5U, facts.perm);
    EXPECT_EQ(1, session_get(4, facts));
    EXPECT_EQ(std::nullopt, facts.user);
    EXPECT_EQ(std::nullopt, facts.group);
    EXPECT_EQ(0U, facts.perm);
}

TEST_F(SessionTest, FirstLineOfAConnection)
{
    const std::string n = std::to_string(login("viewer", "a b"));
    sessionDB.set("Session.5.user", "viewer");
    sessionDB.set("Session.5.perm", "77");
    const struct {
        std::string line;
        unsigned mask;
    } rows[] = {
        {"qvc 0 1\n", 0x7777},
        {"qvc 0 1", 0x7777},
        {"  qvc\t0\t-1 more\n", 0x7777},
        {"qvc " + n + " 0\n", 0x77},
        {"qvc 5 0\n", 0},
        {"qvc 6 0\n", 0},
        {"qvc -1 0\n", 0},
        {"qvc 0\n", 0},
        {"qvc 0 x\n", 0},
        {"qvc 0x 0\n", 0},
        {"0 1\n", 0},
        {"\n", 0},
        {"", 0},
        {"qvc 4294967301 0", 0},
        {std::string("qvc 0\0 1\n", 9), 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.mask, server_login(row.line)) << row.line;

    disable_login = 1;
    for (const auto &row : rows)
        EXPECT_EQ(0xffffU, server_login(row.line)) << row.line;
    disable_login = 0;
}

TEST_F(SessionTest, ListFile)
{
    const std::string long_line(127, 'x');
    const struct {
        void (*change)(int);
        int n;
        std::string before, after;
    } rows[] = {
        {session_add_to_list, 7, "", "7\n"},
        {session_add_to_list, 7, "8\n", "8\n7\n"},
        {session_add_to_list, 7, "8\n7\n9\n", "8\n7\n9\n"},
        {session_add_to_list, 7, "77\n", "77\n7\n"},
        {session_add_to_list, 7, "rubbish\n\n07\n", "rubbish\n\n07\n"},
        {session_add_to_list, 7, "8", "8\n7\n"},
        {session_remove_from_list, 7, "8\n7\n9\n7\n", "8\n9\n"},
        {session_remove_from_list, 7, "8\nrubbish\n\n 9 x\n7\n-3\n", "8\n 9 x\n-3\n"},
        {session_remove_from_list, 7, "7\n", ""},
        {session_remove_from_list, 7, "8\nrubbish\n\n77\r\n", "8\nrubbish\n\n77\r\n"},
        {session_remove_from_list, 7, long_line + "7\n8\n", "8\n"}, // a line of over 127 bytes counts as two
        {session_remove_from_list, 7, std::string("7\0\n8\n", 5), "8\n"},
    };
    for (const auto &row : rows) {
        auth_root().write("tmp/current_sessions", row.before);
        row.change(row.n);
        EXPECT_EQ(row.after, list()) << row.before;
    }
}

TEST_F(SessionTest, ManySessionsKeepTheirPlaceOnTheList)
{
    std::string expected;
    for (int n = 100000; n < 100400; ++n) {
        session_add_to_list(n);
        if (n != 100200)
            expected += std::to_string(n) + "\n";
    }
    session_remove_from_list(100200);
    EXPECT_EQ(expected, list());
}

TEST_F(SessionTest, ListFileIsNotWrittenThroughALink)
{
    const std::string target = auth_root().write("etc/passwd", "precious\n");
    std::filesystem::remove(auth_root().path("tmp/current_sessions"));
    std::filesystem::create_symlink(target, auth_root().path("tmp/current_sessions"));
    session_add_to_list(7);
    session_clear_list();
    EXPECT_EQ("precious\n", auth_root().read("etc/passwd"));
    std::filesystem::remove(auth_root().path("tmp/current_sessions"));
}

} // namespace
} // namespace qvcd

#include "auth_root.h"

#include "auth/server_login.h"
#include "base/options.h"
#include "platform/crypto.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace qvcd {
namespace {

using SessionTest = AuthTest;

int login(std::string_view name, std::optional<std::string> password,
          std::optional<std::string_view> ip = std::nullopt, const Caller &caller = kOwnCaller)
{
    const auto passwords = password ? std::vector{*password} : std::vector<std::string>{};
    return session_login({name, passwords, ip, "we\x1b"}, caller).session;
}

// Each caller's failures count by themselves.
Caller from(const std::string &source, bool local, bool trusted)
{
    return {source, local, trusted};
}

std::string field(int n, const char *name)
{
    return session_get_hdf(n).get_or(name, "(none)");
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
        {"admin.passwd", "kelpo", kUnknownUser},
        {"%61dmin", "kelpo", kUnknownUser},
        {"admin:", "kelpo", kUnknownUser},
        {"a\nb:admin", "kelpo", kUnknownUser},
        {"x:nobody:admin", "kelpo", kUnknownUser},
        {"root", "", kUnknownUser},
        {long_name, "kelpo", kUnknownUser},
        {long_name + ":admin", "kelpo", kUnknownUser}, // cut before the colon
        {"admin", std::nullopt, kWrongPassword},
        {"admin", "kelpo ", kWrongPassword},
        {"x:admin", "kelp", kWrongPassword},
        {"silent", "", kWrongPassword}, // no password is stored
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.result, login(row.name, row.password, {}, from(row.name, true, true)))
            << row.name.substr(0, 40);
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

TEST_F(SessionTest, PrefixGivesANumberThatClientsCanComputeUnlessSomebodyHasIt)
{
    const int own = login("box:viewer:more", "a b", "10.0.0.7");
    EXPECT_EQ(qvcrypto_get_md5_session("box:viewer:a b"), own);
    EXPECT_EQ("viewer box", field(own, "user") + " " + field(own, "ip"));
    EXPECT_EQ(own, login("box:viewer", "a b"));
    const int taken = qvcrypto_get_md5_session("box:admin:kelpo");
    sessionDB.set("Session." + std::to_string(taken) + ".user", "viewer");
    sessionDB.set("Session." + std::to_string(taken) + ".ip", "10.0.0.7");
    const int n = login("box:admin", "kelpo");
    EXPECT_NE(taken, n);
    EXPECT_EQ("admin", field(n, "user"));
    EXPECT_EQ("viewer", field(taken, "user"));
    EXPECT_EQ(n, login("box:admin", "kelpo"));
}

TEST_F(SessionTest, Logout)
{
    const int first = login("admin", "kelpo");
    const int second = login("admin", "kelpo", "10.0.0.7");
    EXPECT_EQ(0, session_logout(0));
    EXPECT_EQ(-1, session_logout(-first));
    EXPECT_EQ(0, session_logout(first));
    EXPECT_EQ(-1, session_logout(first));
    EXPECT_EQ(std::to_string(second) + "\n", list());
    EXPECT_TRUE(session_get_hdf(0));
    EXPECT_EQ(std::nullopt, session_get_user(first));
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
        {"  qvc\t0\t-1 more\n", 0x7777},
        {"qvc " + n + " 0\n", 0x77},
        {"qvc 6 0\n", 0},
        {"qvc -1 0\n", 0},
        {"qvc 0 x\n", 0},
        {"qvc 0x 0\n", 0},
        {"\n", 0},
        {"", 0},
        {"qvc 4294967301 0", 0},
        {std::string("qvc 0\0 1\n", 9), 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.mask, server_login(row.line, kOwnCaller).mask) << row.line;

    disable_login = 1;
    for (const auto &row : rows)
        EXPECT_EQ(0xffffU, server_login(row.line, kOwnCaller).mask) << row.line;
    disable_login = 0;
}

// Rows: who wants in. Columns: session 0 of his, with and without session checking, and whose sessions he may
// use, in the order of the rows.
TEST_F(SessionTest, WhoMayUseWhichSession)
{
    const Caller callers[] = {
        from("user 0", true, true),     from("user 33", true, false),    from("user 34", true, false),
        from("127.0.0.1", false, true), from("192.0.2.1", false, false), from("192.0.2.2", false, false),
    };
    constexpr std::size_t kCallers = std::size(callers);
    const struct {
        bool root, root_unchecked, uses[kCallers];
    } rows[kCallers] = {
        {true, true, {true, true, true, true, true, true}},
        {false, true, {false, true, false, false, false, false}},
        {false, true, {false, false, true, false, false, false}},
        {true, true, {true, true, true, true, false, false}},
        {false, false, {false, false, false, false, true, false}},
        {false, false, {false, false, false, false, false, true}},
    };
    int numbers[kCallers];
    for (std::size_t i = 0; i < kCallers; ++i)
        numbers[i] = login("viewer", "a b", callers[i].source, callers[i]);
    for (std::size_t i = 0; i < kCallers; ++i) {
        const Admission zero = server_login("qvc 0 0\n", callers[i]);
        EXPECT_EQ(rows[i].root ? 0x7777U : 0U, zero.mask) << callers[i].source;
        EXPECT_EQ(!rows[i].root, zero.stranger) << callers[i].source;
        disable_login = 1;
        const Admission unchecked = server_login("qvc 0 0\n", callers[i]);
        EXPECT_EQ(rows[i].root_unchecked ? 0xffffU : 0U, unchecked.mask) << callers[i].source;
        EXPECT_EQ(!rows[i].root_unchecked, unchecked.stranger) << callers[i].source;
        EXPECT_FALSE(server_login("\n", callers[i]).stranger) << callers[i].source;
        disable_login = 0;
        for (std::size_t j = 0; j < kCallers; ++j) {
            const Admission in = server_login("qvc " + std::to_string(numbers[j]) + " 0\n", callers[i]);
            EXPECT_EQ(rows[i].uses[j], in.admitted()) << callers[i].source << " as " << callers[j].source;
            EXPECT_EQ(rows[i].uses[j] ? 0x77U : 0U, in.mask);
            EXPECT_FALSE(in.stranger);
        }
    }
    // Who knows the password from another place shares the session from then on, and only then.
    EXPECT_EQ(numbers[4], login("viewer", "a b", "192.0.2.1", callers[5]));
    EXPECT_TRUE(server_login("qvc " + std::to_string(numbers[4]) + " 0\n", callers[5]).admitted());
    session_logout(numbers[4]);
    EXPECT_FALSE(session_is_for(numbers[4], callers[5]));
}

TEST_F(SessionTest, WrongPasswordsByWayOfAServerHoldUpNobodyElseThere)
{
    const Caller web = from("user 33 again", true, true);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(kWrongPassword, login("viewer", "guess", "10.0.0.7", web));
    EXPECT_EQ(kTooEarly, login("viewer", "a b", "10.0.0.7", web));
    EXPECT_LT(0, login("viewer", "a b", "10.0.0.8", web));
    EXPECT_LT(0, login("admin", "kelpo", "10.0.0.7", web));
}

TEST_F(SessionTest, TheLongestIdleOneOfTheSameSourceMakesRoom)
{
    const auto now = std::chrono::steady_clock::now();
    const Caller web = from("10.0.0.1", false, false);
    const Caller other = from("10.0.0.2", false, false);
    const int others = login("viewer", "a b", "him", other);
    session_use(others)->note(now - std::chrono::hours(2));
    std::vector<int> webs;
    while (webs.size() + 1 < kMaxSessions)
        webs.push_back(login("viewer", "a b", "web " + std::to_string(webs.size()), web));
    session_use(webs[7])->note(now - std::chrono::hours(1));
    login("viewer", "a b", "one more", web);
    EXPECT_FALSE(session_get_hdf(webs[7]));
    EXPECT_TRUE(session_get_hdf(others));
    login("viewer", "a b", {}, from("10.0.0.3", false, false)); // has none of its own there
    EXPECT_FALSE(session_get_hdf(others));
    EXPECT_FALSE(session_is_for(others, other));
    EXPECT_EQ(kMaxSessions, static_cast<std::size_t>(std::ranges::count(list(), '\n')));
}

TEST_F(SessionTest, UnusedOnesEnd)
{
    const auto now = std::chrono::steady_clock::now();
    const int used = login("admin", "kelpo");
    const int unused = login("viewer", "a b");
    session_end_idle(now + std::chrono::hours(1000)); // nobody asked for it
    EXPECT_TRUE(session_get_hdf(unused));
    session_idle = std::chrono::minutes(10);
    const Admission connection = server_login("x " + std::to_string(used) + " 0", kOwnCaller);
    ASSERT_TRUE(connection.use);
    connection.use->note(now + std::chrono::minutes(9));
    session_end_idle(now + std::chrono::minutes(11));
    session_idle = std::chrono::minutes(0);
    EXPECT_EQ(std::to_string(used) + "\n", list());
    EXPECT_FALSE(server_login("x " + std::to_string(unused) + " 0", kOwnCaller).admitted());
}

TEST_F(SessionTest, ListFileIsReplacedNeverWrittenInto)
{
    const std::string path = appliance_root().path("tmp/current_sessions");
    const std::string other = appliance_root().write("etc/passwd", "precious\n");
    std::filesystem::remove(path);
    std::filesystem::create_symlink(other, path);
    session_load_db_file(0);
    const int n = login("admin", "kelpo");
    EXPECT_EQ(std::to_string(n) + "\n", list());
    EXPECT_EQ("precious\n", appliance_root().read("etc/passwd"));
    EXPECT_FALSE(std::filesystem::is_symlink(path));
    EXPECT_EQ(0600U, mode_of("tmp/current_sessions"));
    std::filesystem::permissions(path, std::filesystem::perms(0640)); // for a program of the firmware
    login("viewer", "a b");
    EXPECT_EQ(0640U, mode_of("tmp/current_sessions"));
}

TEST_F(SessionTest, AListThatCannotBeWrittenComesBackWhole)
{
    const std::string path = appliance_root().path("tmp/current_sessions");
    std::filesystem::remove(path);
    std::filesystem::create_directories(path);
    const std::string first = std::to_string(login("admin", "kelpo"));
    EXPECT_TRUE(std::filesystem::is_directory(path));
    std::filesystem::remove(path);
    const std::string second = std::to_string(login("viewer", "a b"));
    EXPECT_EQ(first + "\n" + second + "\n", list());
    for (const auto &entry : std::filesystem::directory_iterator(appliance_root().path("tmp")))
        EXPECT_EQ(std::string::npos, entry.path().filename().string().find(".qvcd")) << entry;
}

} // namespace
} // namespace qvcd

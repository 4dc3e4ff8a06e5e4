#include "auth_root.h"

#include "base/command_lock.h"
#include "base/options.h"
#include "platform/crypto.h"
#include "platform/password_hash.h"
#include "store/hdf_file.h"

#include <thread>

namespace qvcd {
namespace {

// Hashes of "right" at a low cost.
constexpr char kYescrypt[] = "$y$j75$WHQC6kz.rMACMaOEm4VVN.$ydvr2Ijsdt6ri99/RQ/uyIciHqtKsMV6.nqnewwLwCB";
constexpr char kSha512[] =
    "$6$abcdefgh$vR/yd6VXABFTBRyOupJyJyD09twBc54Fjx1W8tzKdqxOfohxeZRb508btnHrxVQLY86b/u4pA/7OgxagBH8130";

class HashTest : public AuthTest {
  protected:
    void SetUp() override
    {
        AuthTest::SetUp();
        hash_passwords = true;
    }
    void TearDown() override
    {
        hash_passwords = false;
        AuthTest::TearDown();
    }
    static int login(std::string_view name, const std::string &password, const std::string &place = "x")
    {
        return session_login({name, {password}, place, {}}).session;
    }
    static std::string stored(const char *user, const char *field = "passwd")
    {
        Tree file = Tree::make();
        EXPECT_EQ(HdfResult::ok,
                  hdf_read_own_file_whole(appliance_root().path("etc/user.conf"), file).result);
        const std::string text = file.get_or(std::string("User.") + user + "." + field, "(none)");
        EXPECT_EQ(text, user_get_stored(user, field).value_or("(none)"));
        return text;
    }
    static bool is_hash_of(const std::string &text, const char *password)
    {
        return text.starts_with("$y$") && qv_password_matches(text, password);
    }
};

TEST_F(HashTest, WhatCountsAsAHash)
{
    const std::string y = kYescrypt;
    const std::string digest = y.substr(y.rfind('$'));
    const std::string salt = y.substr(6, y.size() - digest.size() - 6);
    const std::string s = kSha512;
    const struct {
        std::string text;
        bool is_hash;
    } rows[] = {
        {y, true},
        {s, true},
        {"", false},
        {"$y$j9T$", false},
        {"$y$j75" + salt, false},
        {"$1$abc", false},
        {" " + y, false},
        {y + "x", false},
        {"$y$jFT" + salt + digest, false}, // a gigabyte
        {"$y$j9zzz" + salt + digest, false},
        {"$6$rounds=999999999" + s.substr(2), false},
        {"$2b$31$abcdefghijklmnopqrstuu5s2v8.iXieOjg/.AySBTTZIIVFJeBui", false},
        {"$2b$10$abcdefghijklmnopqrstuu5s2v8.iXieOjg/.AySBTTZIIVFJeBui", true},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.is_hash, qv_is_password_hash(row.text)) << row.text;
        EXPECT_EQ(!row.is_hash, qv_password_matches(row.text, row.text)) << row.text;
    }
    for (const char *hash : {kYescrypt, kSha512}) {
        EXPECT_TRUE(qv_password_matches(hash, "right"));
        EXPECT_FALSE(qv_password_matches(hash, "Right"));
        EXPECT_FALSE(qv_password_matches(hash, ""));
        EXPECT_FALSE(qv_password_matches(hash, std::string(5000, 'x')));
    }
    EXPECT_EQ(std::nullopt, qv_hash_password(std::string(kMaxHashedPasswordBytes + 1, 'x')));
    const std::string longest(kMaxHashedPasswordBytes, 'x');
    EXPECT_TRUE(is_hash_of(qv_hash_password(longest).value_or(""), longest.c_str()));
}

TEST_F(HashTest, AFileThatCannotBeWrittenLocksNobodyOut)
{
    std::filesystem::rename(appliance_root().path("etc"), appliance_root().path("away"));
    EXPECT_LT(0, login("admin", "kelpo"));
    EXPECT_EQ("kelpo", user_get_passwd("admin"));
    std::filesystem::rename(appliance_root().path("away"), appliance_root().path("etc"));
    EXPECT_LT(0, login("admin", "kelpo"));
    EXPECT_TRUE(is_hash_of(stored("admin"), "kelpo"));
}

TEST_F(HashTest, NewPasswords)
{
    EXPECT_EQ(nullptr, user_set_passwd(kRoot, {{"viewer", "new"}, {"silent", kYescrypt}}));
    EXPECT_TRUE(is_hash_of(stored("viewer"), "new"));
    EXPECT_TRUE(is_hash_of(stored("silent"), kYescrypt)); // a password is a password
    EXPECT_EQ(nullptr, user_set_passwd(kRoot, {{"admin", kYescrypt, true}}));
    EXPECT_EQ(kYescrypt, stored("admin"));
    EXPECT_STREQ("##Password too long#", user_passwd_error(std::string(kMaxHashedPasswordBytes + 1, 'x')));
    EXPECT_STREQ("##Invalid user#", user_set_passwd(kRoot, {{"gone", "x"}}));
    EXPECT_FALSE(user_exists("gone"));

    const std::string import =
        "User.in.group = 2\nUser.in.passwd = plain\nUser.in.default = " + std::string(kSha512) + "\n";
    EXPECT_EQ(nullptr, import_users(kRoot, appliance_root().write("tmp/users", import)));
    EXPECT_TRUE(is_hash_of(stored("in"), "plain"));
    EXPECT_EQ(kSha512, stored("in", "default"));
    EXPECT_LT(0, login("in", "plain"));

    hash_passwords = false;
    EXPECT_EQ(nullptr, user_set_passwd(kRoot, {{"viewer", "$y$plain"}, {"silent", kYescrypt}}));
    EXPECT_EQ("$y$plain", stored("viewer"));
    EXPECT_LT(0, login("viewer", "$y$plain"));
    EXPECT_TRUE(is_hash_of(stored("silent"), kYescrypt)); // else its owner could not log in with it
    EXPECT_LT(0, login("silent", kYescrypt));
}

TEST_F(HashTest, TheBuiltInAdministratorGetsAFile)
{
    std::filesystem::remove(appliance_root().path("etc/user.conf"));
    ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/user.conf")));
    EXPECT_LT(0, login("admin", "kelpo"));
    EXPECT_TRUE(is_hash_of(stored("admin"), "kelpo"));
    const Caller stranger{"192.0.2.99", false, false};
    EXPECT_EQ(kBuiltInPassword, session_login({"admin", {"kelpo"}, {}, {}}, stranger).session);
    EXPECT_EQ(nullptr, user_set_passwd(kRoot, {{"admin", "other"}}));
    EXPECT_LT(0, session_login({"admin", {"other"}, {}, {}}, stranger).session);
}

// Two clients log in and a third changes the password meanwhile: each is judged by what is stored in the end.
TEST_F(HashTest, SeveralAtOnce)
{
    int results[4] = {};
    {
        std::vector<std::jthread> clients;
        for (std::size_t i = 0; i < std::size(results); ++i)
            clients.emplace_back([i, &results] {
                const CommandLock lock;
                results[i] = login("admin", "kelpo", std::to_string(i));
            });
    }
    for (const int result : results)
        EXPECT_LT(0, result);
    EXPECT_TRUE(is_hash_of(stored("admin"), "kelpo"));
}

} // namespace
} // namespace qvcd

#include "auth_root.h"

namespace qvcd {
namespace {

using UserTest = AuthTest;

int load(const std::string &text)
{
    auth_root().write("etc/other.conf", text);
    return user_load_db_file(qv_device_file("/etc/other.conf"));
}

TEST_F(UserTest, GroupNumberCutsItsMask)
{
    const struct {
        const char *group, *perm;
        unsigned mask;
    } rows[] = {
        {"0", "7777", 0x7777}, {"1", "7777", 0x0777},  {"2", "7777", 0x0077},
        {"3", "7777", 0x0007}, {"0", "ffff", 0xffff},  {"1", "ffff", 0x0fff},
        {"2", "ffff", 0x00ff}, {"17", "ffff", 0x000f}, {"1", "77", 0x0077},
        {"2", "zz", 0},        {"2", "", 0},           {"01", "7777", 0x0777},
        {"abc", "7777", 7},    {"_0", "7777", 0x0007}, {"4294967296", "f7", 7},
    };
    for (const auto &row : rows) {
        const std::string group = row.group;
        ASSERT_EQ(0, load("Group." + group + ".perm = " + row.perm + "\nUser.u.group = " + group + "\n"));
        EXPECT_EQ(row.mask, user_get_perm("u")) << row.group << " " << row.perm;
    }
}

TEST_F(UserTest, OddEntriesGiveNoRights)
{
    ASSERT_EQ(0, load("Group.1.perm = 7777\nGroup.1.perm.perm = 7777\nGroup.5 = 7777\nGroup = 7777\n"
                      "User = 1\nUser.leaf = 1\nUser.nogroup.passwd = x\nUser.empty.group =\n"
                      "User.dotted.group = 1.perm\nUser.blank.group = 1 \nUser.spaced.group = 1 2\n"
                      "User.path.group = ../1\nUser.unknown.group = 9\nUser.noperm.group = 5\n"
                      "User.a.b.group = 1\nUser.block.group << EOM\n1\nEOM\n"));
    for (const char *name : {"leaf", "nogroup", "empty", "dotted", "spaced", "path", "unknown", "noperm", "a",
                             "block", "a.b", "", ".", "blank.", "blank ", "User", "bl%61nk"})
        EXPECT_EQ(0U, user_get_perm(name)) << name;
    EXPECT_EQ(0U, user_get_perm(std::string(5000, 'x')));
    EXPECT_EQ(0x777U, user_get_perm("blank")); // blanks around a value are no part of it
    EXPECT_EQ(std::nullopt, user_get_passwd("a.b"));
    EXPECT_FALSE(user_check_passwd("blank", ""));
}

TEST_F(UserTest, FileThatCannotBeReadLeavesNobody)
{
    const std::string whole = kUserFile;
    const std::string texts[] = {
        whole.substr(0, whole.size() - 2),
        whole + "}\n",
        whole + "User.x\n",
        whole + "User.a-b.group = 1\n",
        whole + "#include \"/etc/user.conf\"\n",
        whole + std::string("User.x.group = 1\0\n", 18),
        std::string("\x7f"
                    "ELF\x02\x01\x01\0\0",
                    9),
    };
    for (const std::string &text : texts) {
        EXPECT_EQ(1, load(text)) << text.substr(whole.size() < text.size() ? whole.size() : 0);
        EXPECT_FALSE(userDB.root().first_child());
        EXPECT_FALSE(groupDB.root().first_child());
    }
    std::filesystem::create_directories(auth_root().path("etc/folder"));
    EXPECT_EQ(1, user_load_db_file(qv_device_file("/etc/folder")));
    EXPECT_EQ(0U, user_get_perm("admin"));
}

TEST_F(UserTest, MissingFileMeansTheBuiltInAdministrator)
{
    ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/none.conf")));
    EXPECT_EQ(0x777U, user_get_perm("admin"));
    EXPECT_EQ("1", user_get_group("admin"));
    EXPECT_TRUE(user_check_passwd("admin", "kelpo"));
    EXPECT_FALSE(user_check_passwd("admin", "Kelpo"));

    ASSERT_EQ(0, load("")); // an empty file is a file
    EXPECT_EQ(0U, user_get_perm("admin"));
}

TEST_F(UserTest, FileIsWrittenSecretAndReadsBack)
{
    std::filesystem::permissions(auth_root().path("etc/user.conf"), std::filesystem::perms(0644));
    EXPECT_EQ(0, user_update_perm_file());
    EXPECT_EQ(0600U, mode_of("etc/user.conf"));
    ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/user.conf")));
    EXPECT_EQ("a b", user_get_passwd("viewer"));
    EXPECT_EQ("first", user_get_default("admin"));
    EXPECT_EQ(0x77U, user_get_perm("silent"));
}

TEST_F(UserTest, ImportIsAllOrNothing)
{
    const struct {
        const char *text;
        UserImport result;
    } rows[] = {
        {"User.new.group = 1\nUser.admin.passwd << EOM\nx\nEOM\n", UserImport::error},
        {"User.new.group = 1\nUser.a-b.group = 1\n", UserImport::error},
        {"User.new.group = 1\nUser {\n", UserImport::error},
        {"Group.1.perm = 7\n#include \"/etc/user.conf\"\n", UserImport::error},
        {"Other.new.group = 1\n", UserImport::done},
        {"", UserImport::done},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, user_import(auth_root().write("tmp/users", row.text))) << row.text;
        EXPECT_FALSE(user_exists("new")) << row.text;
        EXPECT_EQ("kelpo", user_get_passwd("admin")) << row.text;
        EXPECT_EQ(0x777U, user_get_perm("admin")) << row.text;
        EXPECT_EQ(kUserFile, user_file()) << row.text;
    }
    EXPECT_EQ(UserImport::missing, user_import(auth_root().path("tmp/none")));
}

TEST_F(UserTest, ImportMergesAndWrites)
{
    const std::string file =
        auth_root().write("tmp/users", "Group.2.perm = 44\nUser.new.group = 2\nUser.admin.passwd = other\n");
    ASSERT_EQ(UserImport::done, user_import(file));
    for (int pass = 0; pass < 2; ++pass) { // in memory, then from the file
        EXPECT_EQ(0x44U, user_get_perm("new"));
        EXPECT_EQ("other", user_get_passwd("admin"));
        EXPECT_EQ("first", user_get_default("admin"));
        EXPECT_EQ("a b", user_get_passwd("viewer"));
        ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/user.conf")));
    }
}

} // namespace
} // namespace qvcd

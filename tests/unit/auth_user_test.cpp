#include "auth_root.h"

#include "base/text.h"
#include "platform/api_errors.h"

#include <functional>

namespace qvcd {
namespace {

using UserTest = AuthTest;

int load(const std::string &text)
{
    appliance_root().write("etc/other.conf", text);
    return user_load_db_file(qv_device_file("/etc/other.conf"));
}

TEST_F(UserTest, GroupNumberCutsItsMask)
{
    const struct {
        const char *group, *perm;
        unsigned mask;
    } rows[] = {
        {"0", "ffff", 0xffff},  {"1", "ffff", 0x0fff},   {"2", "ffff", 0x00ff},
        {"3", "ffff", 0x000f},  {"1", "77", 0x0077},     {"2", "zz", 0},
        {"2", "", 0},           {"01", "7777", 0x0777},  {"abc", "7777", 7},
        {"_0", "7777", 0x0007}, {"4294967296", "f7", 7},
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
    EXPECT_EQ(std::nullopt, user_get_passwd("blank"));
}

TEST_F(UserTest, FileThatCannotBeReadLeavesNobody)
{
    const std::string whole = kUserFile;
    for (const std::string &text : {whole.substr(0, whole.size() - 2), whole + "}\n"}) {
        EXPECT_EQ(1, load(text)) << text;
        EXPECT_FALSE(userDB.root().first_child() || groupDB.root().first_child());
    }
    std::filesystem::create_directories(appliance_root().path("etc/folder"));
    EXPECT_EQ(1, user_load_db_file(qv_device_file("/etc/folder")));
    EXPECT_EQ(0U, user_get_perm("admin"));
}

TEST_F(UserTest, AFileThatCouldNotBeReadIsNotOverwritten)
{
    const std::string broken = std::string(kUserFile) + "}\n";
    appliance_root().write("etc/user.conf", broken);
    ASSERT_EQ(1, user_load_db_file(qv_device_file("/etc/user.conf")));
    const std::string good = appliance_root().write("tmp/users", kUserFile);
    EXPECT_STREQ(kUserFileError, import_users(kRoot, good));
    EXPECT_FALSE(user_export(appliance_root().path("etc/user.conf")));
    user_reread_db_file();
    EXPECT_EQ(broken, user_file());
    EXPECT_FALSE(user_exists("admin"));

    std::filesystem::remove(
        appliance_root().path("etc/user.conf")); // it may come back, with other users in it
    user_reread_db_file();
    EXPECT_FALSE(user_exists("admin"));
    appliance_root().write("etc/user.conf", kUserFile);
    user_reread_db_file();
    EXPECT_EQ(nullptr, user_set_passwd(kRoot, {{"viewer", "new"}}));
    EXPECT_EQ("new", user_get_passwd("viewer"));
}

TEST_F(UserTest, MissingFileMeansTheBuiltInAdministrator)
{
    ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/none.conf")));
    EXPECT_EQ(0x777U, user_get_perm("admin"));
    EXPECT_EQ("1", user_get_group("admin"));
    EXPECT_EQ("kelpo", user_get_passwd("admin"));

    ASSERT_EQ(0, load("")); // an empty file is a file
    EXPECT_EQ(0U, user_get_perm("admin"));
}

TEST_F(UserTest, NobodyGivesMoreThanHeHasOrTouchesWhoHasMore)
{
    const std::string users = std::string(kUserFile) + "User.maker.group = 0\nUser.maker.passwd = m\n"
                                                       "User.maker.default = m\nUser.lost.group = 7\n";
    using Change = std::function<const char *(unsigned rights)>;
    const auto import = [](const std::string &text) {
        return [text](unsigned rights) {
            return import_users(rights, appliance_root().write("tmp/users", text));
        };
    };
    const auto group = [](const char *name, const char *number) {
        return [name, number](unsigned rights) { return user_set_group(rights, name, number); };
    };
    const auto password = [](const char *name, const char *text) {
        return [name, text](unsigned rights) { return user_set_passwd(rights, {{name, text}}); };
    };
    const struct {
        const char *what;
        Change change;
        bool admin_may, viewer_may = false;
    } rows[] = {
        {"himself up", group("admin", "0"), false},
        {"a new one above", group("new", "0"), false},
        {"a new one beside", group("new", "1"), true},
        {"a new one below", group("new", "2"), true, true},
        {"one above down", group("maker", "2"), false},
        {"one above as he is", group("maker", "0"), false},
        {"password above", password("maker", "x"), false},
        {"password above, guessed", password("maker", "m"), false},
        {"password beside", password("admin", "x"), true},
        {"one above away", [](unsigned rights) { return user_remove(rights, "maker"); }, false},
        {"one below away", [](unsigned rights) { return user_remove(rights, "viewer"); }, true, true},
        {"import one up", import("User.ok.group = 2\nUser.admin.group = 0\n"), false},
        {"import a guess", import("User.maker.passwd = m\n"), false},
        {"import a default", import("User.maker.default = x\n"), false},
        {"import a group up", import("Group.7.perm = 7777\nGroup.0.perm = f777\n"), false},
        {"import a group down", import("Group.0.perm = 4\n"), false},
        {"import a group of few", import("Group.7.perm = 7777\n"), true, true},
        {"import oneself down", import("Group.1.perm = 77\n"), true},
        {"import as it is", import("Group.0.perm = 7777\nUser.viewer.passwd = a b\n"), true, true},
    };
    for (const auto &row : rows) {
        const std::pair<unsigned, bool> callers[] = {
            {kViewer, row.viewer_may}, {kAdmin, row.admin_may}, {kRoot, true}, {0xffff, true}};
        for (const auto &[rights, may] : callers) {
            appliance_root().write("etc/user.conf", users);
            ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/user.conf")));
            EXPECT_STREQ(may ? nullptr : API_E_INVALID_PERMISSION, row.change(rights)) << row.what;
            EXPECT_TRUE(may || user_file() == users) << row.what;
            EXPECT_TRUE(may || !user_exists("ok")) << row.what;
        }
    }
    ASSERT_EQ(0, load(users));
    EXPECT_EQ(kHiddenPassword, user_shown_to(kAdmin).get("User.maker.passwd"));
    EXPECT_EQ(kHiddenPassword, user_shown_to(kAdmin).get("User.maker.default"));
    EXPECT_EQ("0", user_shown_to(kAdmin).get("User.maker.group"));
    EXPECT_EQ("kelpo", user_shown_to(kAdmin).get("User.admin.passwd"));
    EXPECT_EQ("m", user_shown_to(kRoot).get("User.maker.passwd"));
    EXPECT_FALSE(user_all_within(kAdmin));
    EXPECT_TRUE(user_all_within(kRoot));
}

TEST_F(UserTest, ImportIsAllOrNothing)
{
    constexpr char kFormat[] = "##Error in file format#";
    const std::pair<const char *, const char *> rows[] = {
        {"User.new.group = 1\nUser.admin.passwd << EOM\nx\nEOM\n", kFormat},
        {"User.new.group = 1\nUser {\n", kFormat},
        {"Group.1.perm = 7\n#include \"/etc/user.conf\"\n", kFormat},
        {"Other.new.group = 1\n", kFormat},
        {"", kFormat},
        {"User {\n}\n", kFormat},
        {"User.new.group = 1\nUser.new {\n}\nUser.empty {\n}\n", kFormat},
        {"User.new.group = 1\nUser.new.group.more = 1\n", kFormat},
        {"User.new.group = 1\nUser.new.colour = red\n", kFormat},
        {"User.new.group = 1\nGroup.1.passwd = x\n", kFormat},
        {"User.new.group = 1\nGroup.1.perm = admin\n", kFormat},
        {"User.new.group = 1\nGroup.1.perm = 17777\n", kFormat},
        {"User.new.group = 1\nEnc.rate = 1\n", kFormat},
        {"User.new.group = 9\n", API_E_INVALID_GROUP},
        // The last one who could mend it: by himself, by his group, and though others have the right on
        // paper.
        {"User.new.group = 1\nUser.admin.group = 2\n", kNoAdministrator},
        {"User.new.group = 1\nGroup.1.perm = 477\n", kNoAdministrator},
    };
    for (const auto &[text, error] : rows) {
        EXPECT_STREQ(error, import_users(kRoot, appliance_root().write("tmp/users", text))) << text;
        EXPECT_FALSE(user_exists("new")) << text;
        EXPECT_EQ("kelpo", user_get_passwd("admin")) << text;
        EXPECT_EQ(0x777U, user_get_perm("admin")) << text;
        EXPECT_EQ(kUserFile, user_file()) << text;
    }
    EXPECT_STREQ(kNoAdministrator, user_set_group(kRoot, "admin", "2"));
    EXPECT_STREQ(kNoAdministrator, user_remove(kRoot, "admin"));
    const char *const part = "Group.2.perm = 44\nUser.admin.passwd = other\nUser.new.group = 2\n";
    EXPECT_EQ(nullptr, import_users(kRoot, appliance_root().write("tmp/users", part)));
    ASSERT_EQ(0, user_load_db_file(qv_device_file("/etc/user.conf")));
    EXPECT_EQ("other", user_get_passwd("admin"));
    EXPECT_EQ(0x44U, user_get_perm("new"));
    EXPECT_EQ("first", user_get_default("admin")) << "what it does not say stays";
    EXPECT_EQ("a b", user_get_passwd("viewer"));
    EXPECT_EQ(nullptr,
              import_users(kRoot, appliance_root().write("tmp/users", "User.new.group = 1\nUser.new."
                                                                      "passwd = x\nUser.admin.group = 2\n")));
}

TEST_F(UserTest, ExportIsReplacedAndSecret)
{
    const std::string other = appliance_root().write("etc/passwd", "precious\n");
    const std::string path = appliance_root().path("tmp/export");
    ASSERT_EQ(0, chmod(appliance_root().path("tmp").c_str(), 01777)); // anybody may have put the link there
    std::filesystem::create_symlink(other, path);
    ASSERT_TRUE(user_export(path));
    EXPECT_EQ("precious\n", appliance_root().read("etc/passwd"));
    EXPECT_EQ(0600U, mode_of("tmp/export"));
    EXPECT_EQ(kUserFile, appliance_root().read("tmp/export"));
}

} // namespace
} // namespace qvcd

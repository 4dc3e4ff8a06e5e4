#include "platform/sysroot.h"
#include "store/database.h"
#include "store/profile_files.h"
#include "temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qvcd {
namespace {

using testing::ElementsAre;

// The sysroot is read once a process, so all tests share it and empty the profile folder.
const TempFolder &root()
{
    static const TempFolder folder;
    return folder;
}

class ProfileFilesTest : public testing::Test {
  protected:
    static void SetUpTestSuite()
    {
        setenv("QV_SYSROOT", root().path().c_str(), 1);
        ASSERT_EQ(qv_sysroot(), root().path());
    }
    void SetUp() override
    {
        std::filesystem::remove_all(root().path("etc"));
        std::filesystem::create_directory(root().path("etc"));
        hdfdb_init();
    }
    void TearDown() override
    {
        profiledb_destroy();
        hdfdb_destroy();
    }

    static void profile(const std::string &name, const std::string &text)
    {
        root().write("etc/profiles/" + name, text);
    }
    static std::vector<std::string> children(const std::string &node)
    {
        std::vector<std::string> names;
        for (const Node child : profileDB.find(node))
            names.emplace_back(child.name());
        return names;
    }
};

TEST_F(ProfileFilesTest, NamesThatCanBeFiles)
{
    for (const std::string name : {"a", "My_Cam_1", "a.b", "with blank", "-x"})
        EXPECT_TRUE(is_profile_name(name)) << name;
    for (const std::string name : {"", ".", "..", ".hidden", "a/b", "/", "../x"})
        EXPECT_FALSE(is_profile_name(name)) << name;
    EXPECT_FALSE(is_profile_name(std::string_view("a\0b", 3)));
    EXPECT_TRUE(is_profile_name(std::string(250, 'x')));
    EXPECT_FALSE(is_profile_name(std::string(251, 'x')));
}

TEST_F(ProfileFilesTest, Existence)
{
    profile("a.hdf", "A.b = 1\n");
    EXPECT_EQ(profile_file("a"), "/etc/profiles/a.hdf");
    EXPECT_EQ(profile_exists("a"), 0);
    EXPECT_EQ(profile_exists("b"), 1);
    EXPECT_EQ(profile_exists("default"), 1);
    EXPECT_EQ(profile_exists("../profiles/a"), 1);
}

TEST_F(ProfileFilesTest, Reading)
{
    profile("good.hdf", "A.b = x+y\n");
    profile("broken.hdf", "A.b = 1\nC {\n");
    Tree tree;
    EXPECT_EQ(profile_read_hdf("good", tree), 0);
    EXPECT_EQ(tree.get("A.b"), "x+y");
    EXPECT_EQ(profile_read_hdf("default", tree), 0);
    EXPECT_EQ(tree.get("A.b"), "x+y");
    EXPECT_EQ(profile_read_hdf("missing", tree), 1);
    EXPECT_EQ(profile_read_hdf("broken", tree), 1);
    EXPECT_EQ(tree.get("A.b"), std::nullopt);
    EXPECT_EQ(profile_read_hdf("../profiles/good", tree), 1);
}

TEST_F(ProfileFilesTest, GroupIsTheFirstOneInTheFile)
{
    profile("two.hdf", "Other.name = no\n"
                       "Encoder {\n  name = no\n  MyProfiles {\n    name = two\n    desc = Two\n  }\n}\n"
                       "Later.Profiles.name = no\n");
    std::string group = "untouched";
    EXPECT_EQ(profile_read_group("two", group), 0);
    EXPECT_EQ(group, "Encoder.MyProfiles.name");
}

TEST_F(ProfileFilesTest, ResultIsLeftAloneWithoutAGroup)
{
    profile("plain.hdf", "A.name = x\nProfiles.name.deeper = 1\n");
    for (const char *name : {"plain", "default", "missing"}) {
        std::string out = "untouched";
        EXPECT_EQ(profile_read_group(name, out), name == std::string("missing") ? 1 : 0) << name;
        EXPECT_EQ(profile_read_group_desc(name, out), name == std::string("missing") ? 1 : 0) << name;
        EXPECT_EQ(out, "untouched") << name;
    }
}

TEST_F(ProfileFilesTest, PercentSequencesOfADescription)
{
    const std::pair<const char *, const char *> cases[] = {
        {"Studio", "Studio"}, {"50%%", "50%"},    {"a%%%b", "a%%b"}, {"%%%%", "%%"},
        {"%s%d%n", "%s%d%n"}, {"a%20b", "a%20b"}, {"100%", "100%"},
    };
    for (const auto &[stored, shown] : cases) {
        profile("p.hdf", std::string("E.Profiles.desc = ") + stored + "\n");
        std::string desc;
        EXPECT_EQ(profile_read_group_desc("p", desc), 0);
        EXPECT_EQ(desc, shown);
    }
    profile("p.hdf", "E.Profiles.desc = " + std::string(2000, 'd') + "\n");
    std::string desc;
    profile_read_group_desc("p", desc);
    EXPECT_EQ(desc.size(), 1023U);
}

TEST_F(ProfileFilesTest, LoadMakesTheFolderAndKnowsTheDefault)
{
    EXPECT_EQ(profiledb_load(), 0);
    EXPECT_TRUE(std::filesystem::is_directory(root().path("etc/profiles")));
    EXPECT_EQ(profileDB.get("Profile.current"), "default");
    EXPECT_EQ(profileDB.get("Profile.default.name"), "default");
}

TEST_F(ProfileFilesTest, LoadWithoutSettings)
{
    hdfdb_destroy();
    EXPECT_EQ(profiledb_load(), 0);
    EXPECT_EQ(profileDB.get("Profile.current"), "default");
}

TEST_F(ProfileFilesTest, LoadEntersFilesFromLastToFirst)
{
    profile("a.hdf", "E.Profiles.name = a\n");
    profile("b.hdf.old", "E.rate = 1\n");
    profile("c.hdf", "not good\n");
    profile("my cam.hdf", "E.rate = 1\n");
    profile(".hdf", "E.rate = 1\n");
    profile("readme", "");
    hdfDB.set("System.Configuration.Profiles.current", "a");
    EXPECT_EQ(profiledb_load(), 0);
    EXPECT_THAT(children("Profile"), ElementsAre("current", "default", "my cam", "c", "b", "a"));
    EXPECT_THAT(children("Profile.a"), ElementsAre("name", "group"));
    EXPECT_THAT(children("Profile.b"), ElementsAre("name"));
    EXPECT_EQ(profileDB.get("Profile.current"), "a");
    EXPECT_EQ(profileDB.get("Profile.a.name"), "a");
    EXPECT_EQ(profileDB.get("Profile.a.group"), "E.Profiles.name");
}

TEST_F(ProfileFilesTest, LoadReportsAFolderThatCannotBeRead)
{
    root().write("etc/profiles", "a file");
    EXPECT_EQ(profiledb_load(), 1);
    EXPECT_EQ(profileDB.get("Profile.default.name"), "default");
}

TEST_F(ProfileFilesTest, Validity)
{
    profile("a.hdf", "E.rate = 1\n");
    EXPECT_EQ(check_valid_profile("a"), 0);
    profiledb_load();
    for (const std::string name : {"a", "default"})
        EXPECT_NE(check_valid_profile(name), 0) << name;
    for (const std::string name : {"", "b", "current", "a.name", "my cam", "."})
        EXPECT_EQ(check_valid_profile(name), 0) << name;
}

TEST_F(ProfileFilesTest, MemoryHoldsNamesThatNoTreeFileCan)
{
    profiledb_load();
    for (const std::string name : {"my-cam", "my cam", "a=b", "K\xc3\xbc", "#1", "v1.2", ":", "{", "x\n"}) {
        EXPECT_TRUE(profiledb_add(name, "E.Profiles.name")) << name;
        EXPECT_NE(check_valid_profile(name), 0) << name;
        EXPECT_EQ(profiledb_count_group("E.Profiles.name"), 1U) << name;
        profiledb_remove(name);
        EXPECT_EQ(check_valid_profile(name), 0) << name;
        EXPECT_EQ(profiledb_count_group("E.Profiles.name"), 0U) << name;
    }
    std::string deep(200, 'x');
    for (std::size_t i = 1; i < deep.size(); i += 2)
        deep[i] = '.';
    for (const std::string &name : {std::string("a..b"), std::string("a."), deep}) {
        EXPECT_FALSE(profiledb_add(name)) << name;
        EXPECT_EQ(check_valid_profile(name), 0) << name;
        profiledb_remove(name);
    }
    EXPECT_THAT(children("Profile"), testing::Not(testing::Contains("a")));
}

TEST_F(ProfileFilesTest, GroupIsCountedUpToSixteen)
{
    profiledb_load();
    for (int i = 0; i < 17; ++i) {
        EXPECT_EQ(profiledb_count_group("E.Profiles.name"), static_cast<std::size_t>(std::min(i, 16)));
        profiledb_add("p" + std::to_string(i), "E.Profiles.name");
        profiledb_add("q" + std::to_string(i), "D.Profiles.name");
    }
    EXPECT_EQ(profiledb_count_group("E.Profiles.name"), 16U);
}

TEST_F(ProfileFilesTest, GroupListHoldsTheCurrentProfileTwice)
{
    for (const std::string name : {"b", "a", "c"})
        profile(name + ".hdf", "E.Profiles.name = " + name + "\n");
    profile("other.hdf", "D.Profiles.name = other\n");
    hdfDB.set("System.Configuration.Profiles.current", "b");
    profiledb_load();
    EXPECT_THAT(profile_names_of_group("E.Profiles.name"), ElementsAre("a", "b", "b", "c"));
    EXPECT_THAT(profile_names_of_group("D.Profiles.name"), ElementsAre("other"));
    EXPECT_THAT(profile_names_of_group("X.Profiles.name"), ElementsAre());
}

TEST_F(ProfileFilesTest, GroupListPassesOverTheNameDefaultEvenWithAFile)
{
    profile("default.hdf", "E.Profiles.name = default\n");
    profiledb_load();
    EXPECT_THAT(profile_names_of_group("E.Profiles.name"), ElementsAre());
}

TEST_F(ProfileFilesTest, GroupListHoldsAtMostSixteen)
{
    for (char c = 'a'; c <= 'r'; ++c)
        profile(std::string(1, c) + ".hdf", "E.Profiles.name = x\n");
    profiledb_load();
    const std::vector<std::string> names = profile_names_of_group("E.Profiles.name");
    ASSERT_EQ(names.size(), 16U);
    EXPECT_EQ(names.front(), "c"); // the tree holds the last name first
    EXPECT_EQ(names.back(), "r");
}

} // namespace
} // namespace qvcd

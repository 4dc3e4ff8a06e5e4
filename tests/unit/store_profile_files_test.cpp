#include "platform/sysroot.h"
#include "trees_fixture.h"

#include <gmock/gmock.h>

namespace qvcd {
namespace {

using testing::ElementsAre;
using testing::Pair;

class ProfileFilesTest : public TreesTest {
  protected:
    void SetUp() override
    {
        TreesTest::SetUp();
        std::filesystem::create_directory(appliance_root().path("etc"));
    }
    static void profile(const std::string &name, const std::string &text)
    {
        appliance_root().write("etc/profiles/" + name, text);
    }
};

TEST_F(ProfileFilesTest, NamesThatCanBeFiles)
{
    for (const std::string name : {"a..b", "with blank", "-x", "K\xc3\xbc"})
        EXPECT_TRUE(is_profile_name(name)) << name;
    for (const std::string name : {"", ".", "..", ".hidden", "a/b", "/", "../x", "a\nb", "a\tb", "\x7f"})
        EXPECT_FALSE(is_profile_name(name)) << name;
    EXPECT_FALSE(is_profile_name(std::string_view("a\0b", 3)));
    EXPECT_TRUE(is_profile_name(std::string(250, 'x')));
    EXPECT_FALSE(is_profile_name(std::string(251, 'x')));
}

TEST_F(ProfileFilesTest, WhatSaysWhichProfileIsSelected)
{
    metaDB.set("Enc.Profiles.name.type", "blank,profile2");
    metaDB.set("Cam.ColorProfiles.name.type", "string");
    for (const char *api :
         {"System.Configuration.Profiles.current", "Enc.Profiles.name", "Enc.Profiles.desc"})
        EXPECT_TRUE(is_profile_selection(api)) << api;
    for (const char *api :
         {"Enc.Profiles.icon", "Cam.ColorProfiles.name", "Enc.Profiles", "name", "Enc.name", ""})
        EXPECT_FALSE(is_profile_selection(api)) << api;
}

TEST_F(ProfileFilesTest, WhatIsWrittenCanBeRead)
{
    profile("p.hdf", "A.b = 1\n");
    const auto write = [&](std::size_t bytes) {
        Tree document = Tree::make();
        document.set("A", std::string(bytes - std::string("A = \n").size(), 'x'));
        return profile_write_hdf("p", document, FileKind::open);
    };
    Tree read;
    EXPECT_EQ(write(kMaxProfileBytes), (FileResult{0, true}));
    EXPECT_EQ(profile_read_hdf("p", read), 0);
    EXPECT_EQ(write(kMaxProfileBytes + 1), (FileResult{EFBIG, false}));
    EXPECT_EQ(appliance_root().read("etc/profiles/p.hdf").size(), kMaxProfileBytes);
}

TEST_F(ProfileFilesTest, GroupAndDescription)
{
    profile("two.hdf", "Other.name = no\nEncoder.name = no\nEncoder.MyProfiles.name = two\n"
                       "Later.Profiles.name = no\n");
    profile("plain.hdf", "A.name = x\nProfiles.name.deeper = 1\n");
    std::string out = "untouched";
    for (const std::string name : {"plain", "default", "missing", "../profiles/two"}) {
        const int result = name == "plain" || name == "default" ? 0 : 1;
        EXPECT_EQ(profile_read_group(name, out), result) << name;
        EXPECT_EQ(profile_read_group_desc(name, out), result) << name;
        EXPECT_EQ(out, "untouched") << name;
    }
    EXPECT_EQ(profile_read_group("two", out), 0);
    EXPECT_EQ(out, "Encoder.MyProfiles.name");
    profile("p.hdf", "E.Profiles.desc = 50%% %s%d%n 100%" + std::string(2000, 'd') + "\n");
    EXPECT_EQ(profile_read_group_desc("p", out), 0);
    EXPECT_EQ(out, "50% %s%d%n 100%" + std::string(1008, 'd'));
}

TEST_F(ProfileFilesTest, TheListIsThatOfTheFiles)
{
    EXPECT_EQ(profiledb_load(), 0);
    EXPECT_TRUE(std::filesystem::is_directory(appliance_root().path("etc/profiles")));
    profile("a.hdf", "E.Profiles.name = a\n");
    profile("a.hdf.b.hdf", "E.rate = 1\n");
    profile("c.hdf", "not good\n");
    for (const char *other : {"b.hdf.old", ".hdf", "readme", "default.hdf"})
        profile(other, "E.rate = 1\n");
    EXPECT_EQ(profiledb_load(), 0);
    EXPECT_THAT(profile_names(), ElementsAre("default", "c", "a.hdf.b", "a"));
    for (const char *name : {"a", "default"})
        EXPECT_NE(check_valid_profile(name), 0) << name;
    for (const char *name : {"", "b", "current", "a.hdf"})
        EXPECT_EQ(check_valid_profile(name), 0) << name;
    EXPECT_EQ(profile_remove_file("c").error, 0);
    EXPECT_EQ(profile_remove_file("c").error, ENOENT);
    EXPECT_EQ(profile_write_text("a", {"D.Profiles.name = a\n", 0600, "D.Profiles.name"}).error, 0);
    EXPECT_THAT(profileDB, ElementsAre(Pair("a.hdf.b", ""), Pair("a", "D.Profiles.name")));
    std::filesystem::remove_all(appliance_root().path("etc/profiles"));
    appliance_root().write("etc/profiles", "a file");
    EXPECT_EQ(profiledb_load(), 1);
    EXPECT_EQ(profileDB.size(), 2U); // a folder that cannot be read is not empty
    EXPECT_FALSE(profile_remove_files().changed);
    EXPECT_NE(profile_write_text("b", {"", 0600, ""}).error, 0);
    EXPECT_EQ(profileDB.size(), 2U);
}

TEST_F(ProfileFilesTest, TheListOfAGroupHoldsSixteenAndTheCurrentOneTwice)
{
    for (char c = 'a'; c <= 'r'; ++c)
        profile(std::string(1, c) + ".hdf", "E.Profiles.name = x\n");
    for (const char *name : {"t", "s"})
        profile(std::string(name) + ".hdf", "D.Profiles.name = x\n");
    profiledb_load();
    const std::vector<std::string> names = profile_names_of_group("E.Profiles.name");
    EXPECT_EQ(names.size(), 16U);
    EXPECT_EQ(names.front() + names.back(), "cr"); // the list holds the last name first
    EXPECT_EQ(profiledb_count_group("E.Profiles.name"), 18U);
    hdfDB.set(kCurrentProfileApi, "s");
    EXPECT_THAT(profile_names_of_group("D.Profiles.name"), ElementsAre("s", "s", "t"));
    EXPECT_THAT(profile_names_of_group("X.Profiles.name"), ElementsAre());
}

} // namespace
} // namespace qvcd

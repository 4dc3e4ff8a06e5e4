#include "commands/profile.h"
#include "commands_fixture.h"
#include "funcs/read_map.h"
#include "store/profile_files.h"

#include <sys/stat.h>

namespace qvcd {
namespace {

using testing::HasSubstr;

constexpr char kInvalid[] = "##Invalid arguments#\n";
constexpr char kNotFound[] = "##Profile not found#\n";
constexpr char kCurrent[] = "System.Configuration.Profiles.current";

class ProfileTest : public SnapshotTest {
  protected:
    static std::string name_line(const std::string &name)
    {
        return "Profile." + name + ".name=" + name + "\n";
    }
    static std::string profile(const std::string &name) { return file("etc/profiles/" + name + ".hdf"); }
    static void write_profile(const std::string &name, const std::string &text)
    {
        write("etc/profiles/" + name + ".hdf", text);
    }
};

TEST_F(ProfileTest, NamesThatNoFileCanHaveAreRefused)
{
    start();
    ask("profile.save good");
    const std::string long_name(251, 'x');
    for (const std::string name : {"../x", "a/b", "/x", ".x", "..", "a\x01", long_name.c_str()}) {
        for (const std::string line : {"read ", "load ", "save ", "copy ", "copy good ", "remove "})
            EXPECT_EQ(ask("profile." + line + name), (Answer{1, kInvalid})) << line << name;
    }
    for (const char *line : {"save", "copy", "remove"})
        EXPECT_EQ(ask(std::string("profile.") + line), (Answer{1, kInvalid})) << line;
    EXPECT_EQ(ask("profile.load"), (Answer{1, ""}));
    EXPECT_EQ(ask("profile.copy good"), (Answer{1, ""}));
    for (const char *line : {"read none", "load none", "load default", "remove none"})
        EXPECT_EQ(ask(std::string("profile.") + line), (Answer{1, kNotFound})) << line;
    EXPECT_EQ(ask("profile.list", 0xf0ff), (Answer{0, ""}));
}

TEST_F(ProfileTest, LifeOfAProfileOfAnyName)
{
    start();
    for (const std::string &name : {std::string("a=b"), std::string("a%20b"), std::string("a..b"),
                                    std::string("%s"), std::string(250, 'x')}) {
        EXPECT_EQ(ask("profile.save " + name + " Enc.rate"), (Answer{0, name_line(name)}));
        EXPECT_EQ(profile(name), "Enc {\n  rate = 10\n}\n") << name;
        EXPECT_EQ(reply("profile.list"),
                  "Profile.current=default\n" + name_line("default") + name_line(name));
        EXPECT_EQ(ask("profile.read " + name), (Answer{0, "Enc.rate=10\n"}));
        EXPECT_EQ(ask("profile.load " + name), (Answer{0, name_line(name)}));
        EXPECT_EQ(ask("profile.remove " + name), (Answer{0, name_line(name)}));
        EXPECT_FALSE(exists("etc/profiles/" + name + ".hdf"));
    }
}

TEST_F(ProfileTest, ReadShowsWhatAUserMaySet)
{
    write_profile(
        "p", "Enc {\n  rate = 11\n  text = a+b%20\n  look = x\n  live = x\n  still = x\n  hidden = x\n}\n"
             "Unknown.api = 1\n");
    write_profile("broken", "Enc {\n");
    start();
    // A private API is passed over only where "dynamic" is spoken of at all.
    EXPECT_EQ(ask("profile.read p"), (Answer{0, "Enc.rate=11\nEnc.text=a+b%20\nEnc.hidden=x\n"}));
    EXPECT_EQ(ask("profile.read broken"), (Answer{1, "##Error loading profile#\n"}));
    EXPECT_EQ(ask("profile.read"), ask("getd"));
    hdfDB.set(kCurrent, "p");
    EXPECT_EQ(reply("profile.read"), reply("profile.read p"));
}

TEST_F(ProfileTest, AGroupHoldsSixteen)
{
    start();
    EXPECT_EQ(ask("profile.save p0 Enc.Profiles Enc.rate"),
              (Answer{0, name_line("p0") + "Profile.p0.group=Enc.Profiles.name\n"}));
    EXPECT_EQ(profile("p0"), "Enc {\n  Profiles {\n    name = \n    desc = \n  }\n  rate = 10\n}\n");
    for (int i = 1; i < 16; ++i)
        ASSERT_EQ(ask("profile.copy p0 p" + std::to_string(i)).result, 0);
    const Answer refused{1, "##Max profiles created for group#\n"};
    for (const char *line : {"save another Enc.Profiles", "save p3 Enc.Profiles", "copy p0 another"})
        EXPECT_EQ(ask(std::string("profile.") + line), refused) << line;
    EXPECT_EQ(ask("profile.copy p0 p3").result, 0);
    EXPECT_EQ(ask("add Enc.Profiles.name=New%20one"), refused);
    EXPECT_FALSE(exists("etc/profiles/New_one.hdf"));
    EXPECT_EQ(ask("add Enc.Profiles.name=p6"), (Answer{0, ""})); // one of the sixteen makes room for itself
    EXPECT_EQ(ask("profile.save another Enc").result, 0); // a part that has a group in it is no profile of it
    ask("profile.remove p3");
    EXPECT_EQ(ask("profile.save p3 Enc.Profiles").result, 0);
}

TEST_F(ProfileTest, CopyGoesFromTheFirstOntoTheSecond)
{
    write_profile("a", "# kept as it is\nEnc.rate = 11\n");
    chmod(appliance_root().path("etc/profiles/a.hdf").c_str(), 0600);
    write_profile("b", "Enc.rate = 12\n");
    start();
    EXPECT_EQ(ask("profile.copy a b"), (Answer{0, "Profile.a.name=b\n"}));
    EXPECT_EQ(profile("b"), profile("a"));
    hdfDB.set(kCurrent, "c");
    EXPECT_EQ(ask("profile.copy a"), (Answer{0, "Profile.a.name=c\n"}));
    EXPECT_EQ(appliance_root().mode_of("etc/profiles/c.hdf"), 0600U);
    std::filesystem::create_directory(appliance_root().path("etc/profiles/d.hdf"));
    for (const char *line : {"none b", "default b", "d b", "b d"})
        EXPECT_EQ(ask(std::string("profile.copy ") + line), (Answer{1, "##Error copying profile#\n"}))
            << line;
    EXPECT_EQ(profile("b"), profile("a"));
}

TEST_F(ProfileTest, RemoveOfTheCurrentProfileSelectsTheDefault)
{
    write_profile("p", "Enc.rate = 11\n");
    start();
    EXPECT_EQ(ask("profile.remove default"), (Answer{1, "##Can not use default profile#\n"}));
    ASSERT_EQ(ask(std::string("update ") + kCurrent + "=p").result, 0);
    const std::string selection = appliance_root().path("etc/profiles.conf");
    std::filesystem::rename(selection, appliance_root().path("aside"));
    std::filesystem::create_directory(selection);
    EXPECT_THAT(reply("profile.remove"), HasSubstr("##Error removing profile#\n")) << "while it is selected";
    EXPECT_TRUE(exists("etc/profiles/p.hdf"));
    std::filesystem::remove(selection);
    std::filesystem::rename(appliance_root().path("aside"), selection);
    hdfDB.set(kCurrent, "p");
    EXPECT_THAT(reply("profile.remove"), testing::EndsWith(name_line("default")));
    EXPECT_EQ(setting(kCurrent), "default");
    EXPECT_EQ(file("etc/profiles.conf"), "CURRENT=\"default\"\n");
    EXPECT_EQ(reply("profile.list"), "Profile.current=default\n" + name_line("default"));
}

TEST_F(ProfileTest, ResetRemovesEveryProfileFile)
{
    for (const char *name : {"p.hdf", "default.hdf", "p.hdf.old", "readme"})
        write(std::string("etc/profiles/") + name, "Enc.rate = 11\n");
    start();
    EXPECT_EQ(ask("profile.reset"), (Answer{0, ""}));
    EXPECT_EQ(reply("profile.list"), "Profile.current=default\n" + name_line("default"));
    for (const char *name : {"p.hdf", "default.hdf", "p.hdf.old"})
        EXPECT_FALSE(exists(std::string("etc/profiles/") + name)) << name;
    EXPECT_TRUE(exists("etc/profiles/readme"));
    std::filesystem::create_directory(appliance_root().path("etc/profiles/d.hdf"));
    EXPECT_EQ(ask("profile.reset"), (Answer{1, "##Error removing profile#\n"}));
    std::filesystem::remove_all(appliance_root().path("etc/profiles"));
    EXPECT_EQ(ask("profile.reset"), (Answer{0, ""}));
}

TEST_F(ProfileTest, AddStoresTheNamedSettings)
{
    start();
    ask("set Enc.text=a%2Bb%20c");
    EXPECT_EQ(ask("add Enc.Profiles.name=My%20Cam%20%231!"), (Answer{0, ""}));
    EXPECT_EQ(profile("My_Cam_1"), "Enc {\n  Profiles {\n    name = My_Cam_1\n    desc = My+Cam+%231!\n  }\n"
                                   "  rate = 10\n  text = a%2Bb+c\n}\n");
    EXPECT_EQ(setting("Enc.Profiles.name") + "," + setting("Enc.Profiles.desc"), "My_Cam_1,My Cam #1!");
    EXPECT_THAT(file("etc/enc.conf"), HasSubstr("NAME=\"My_Cam_1\""));
    EXPECT_EQ(ask("remove Enc.Profiles.name=My_Cam_1"), (Answer{0, name_line("My_Cam_1")}));
    EXPECT_EQ(ask("remove Enc.Profiles.name=..%2Ftwo"), (Answer{0, kInvalid}));
    EXPECT_EQ(ask("remove Enc.Profiles.name=My_Cam_1"), (Answer{0, kNotFound}));

    std::string add = "profile_addfunc";
    for (int i = 0; i < 20; ++i) {
        hdfDB.set("Enc.x" + std::to_string(i), "1");
        metaDB.set("Enc.x" + std::to_string(i) + ".attr", "X");
        add += (i % 2 ? ", Enc.x" : "\nEnc.x") + std::to_string(i);
    }
    metaDB.set("Enc.Profiles.name.add", add);
    EXPECT_EQ(ask("add Enc.Profiles.name=p").result, 0);
    EXPECT_THAT(profile("p"), testing::AllOf(HasSubstr("x14 = 1"), testing::Not(HasSubstr("x15"))));
}

TEST_F(ProfileTest, ProfileInForce)
{
    write_profile("My_Cam", "Enc.rate = 10\nEnc.text = a+b%2B\nEnc.live = other\nEnc.gone = 1\n");
    write_profile("broken", "Enc {\n");
    start();
    hdfDB.set("Enc.text", "a b+");
    metaDB.set("State.read", "profile_rfunc");
    metaDB.set("State.file", "/etc/profiles.conf");
    metaDB.set("State.attr", "CURRENT");
    const struct {
        const char *selection, *rate, *state;
    } rows[] = {
        {"My Cam!", "10", "My Cam!"}, {"My Cam!", "11", "custom"},  {"#!", "10", "custom"},
        {"gone", "11", "gone"},       {"default", "11", "default"}, {"broken", "10", "custom"},
    };
    for (const auto &row : rows) {
        write("etc/profiles.conf", std::string("CURRENT=\"") + row.selection + "\"\n");
        hdfDB.set("Enc.rate", row.rate);
        Request request(kInternalMask);
        EXPECT_EQ(rfuncmap_read(request, "State"), row.state) << row.selection << " " << row.rate;
    }
}

} // namespace
} // namespace qvcd

#include "captured.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "trees_fixture.h"

namespace qvcd {
namespace {

constexpr unsigned kReader = 0x0004;

class IntrospectTest : public TreesTest {
  protected:
    void SetUp() override
    {
        TreesTest::SetUp();
        model("A: perm = 0006\nQ: perm = 0006");
    }

    static std::string describe(const std::string &api, bool compact = false, const std::string &prefix = {},
                                unsigned mask = kReader)
    {
        Request request(mask);
        return captured(
            [&](std::FILE *out) { EXPECT_EQ(ifuncmap_introspect(request, prefix, api, compact, out), 0); });
    }

    // Describes an API of this type whose value is "v".
    static std::string of_type(const std::string &type, bool compact = false, const std::string &prefix = {})
    {
        metaDB.set("A.b.type", type);
        hdfDB.set("A.b", "v");
        const std::string text = describe("A.b", compact, prefix);
        const std::string facts = "A.b.type=" + type + "\nA.b.value=v\n";
        EXPECT_TRUE(text.starts_with(facts)) << text;
        return text.substr(std::min(facts.size(), text.size()));
    }

    static void write_profiles()
    {
        appliance_root().write("etc/profiles/b.hdf", "A.Profiles.name = b\nA.Profiles.desc = 50%%\n");
        appliance_root().write("etc/profiles/a.hdf", "A.Profiles.name = a\n");
        appliance_root().write("etc/profiles/c.d.hdf", "X.Profiles.name = c\n");
        profiledb_load();
    }
};

TEST_F(IntrospectTest, WhatIsDescribed)
{
    model("A: type = boolean\nA.none: perm = 0666\nA.hidden: introspect =; type = boolean"); // not inherited
    Request request(kReader);
    for (const char *api : {"A.none", "A.hidden", "A.unknown"}) {
        const auto nothing = [&](std::FILE *out) {
            EXPECT_EQ(ifuncmap_introspect(request, "", api, false, out), 1);
        };
        EXPECT_EQ(captured(nothing), "") << api;
    }
    model("A.b: introspect = boolean; type = string; default ="); // "introspect" goes before the type
    hdfDB.set("A.b", "1");
    EXPECT_EQ(describe("A.b"), "A.b.type=boolean\nA.b.default=\nA.b.value=1\n"
                               "A.b.choices=[0,1]\nA.b.0=0\nA.b.1=1\n");
    model("A.live: type = string; read = zero_rfunc");
    hdfDB.set("A.live", "stored");
    EXPECT_EQ(describe("A.live"), "A.live.type=string\nA.live.value=stored\n");
    metaDB.set("A.live.dynamic", "true");
    EXPECT_EQ(describe("A.live"), "A.live.type=string\nA.live.value=0\n");
}

TEST_F(IntrospectTest, Alternatives)
{
    const std::pair<const char *, const char *> cases[] = {
        {"blank,ipaddress", ""},
        {"string_set", ""},
        {"string_set a,boolean,domainname_list b",
         "A.b.choices=[a]\nA.b.0=a\nA.b.choices=[0,1]\nA.b.0=0\nA.b.1=1\nA.b.choices=[b]\nA.b.1=b\n"},
        {"string_length 8", "A.b.min=8\nA.b.max=\n"},
        {"integer_range 0 100,blank", "A.b.min=0\nA.b.max=100\nA.b.min=\nA.b.max=\n"},
        {"signed_integer_set -1 5,string x",
         "A.b.choices=[-1,5]\nA.b.0=-1\nA.b.1=5\nA.b.min=-1\nA.b.max=5\nA.b.choices=[x]\nA.b.2=x\n"},
        // Members and bounds that the type refuses are not offered.
        {"string_set a\"b ok caf\xc3\xa9", "A.b.choices=[ok]\nA.b.0=ok\n"},
        {"domainname_list a.org b:c cam.local -x", "A.b.choices=[a.org,b:c]\nA.b.0=a.org\nA.b.1=b:c\n"},
        {"integer_range 1x 99999999999999999999", "A.b.min=\nA.b.max=\n"},
        {"float_range .5 1e3", "A.b.min=\nA.b.max=\n"},
        {"integer_set 007 1x -3 99999999999999999999", "A.b.choices=[007]\nA.b.0=007\n"},
        {"string_length 0 5000", "A.b.min=\nA.b.max=1023\n"},
    };
    for (const auto &[type, lines] : cases)
        EXPECT_EQ(of_type(type), lines) << type;
}

TEST_F(IntrospectTest, CompactModeAndPrefix)
{
    const std::pair<const char *, const char *> cases[] = {
        {"boolean", "\t0 1"},
        {"string_set auto manual", "\tauto manual "},
        {"integer_range 1 10,blank", "\t1-10 \t- "},
        {"signed_integer_set -1 5", "\t-1 5 \t-1-5 "},
    };
    for (const auto &[type, text] : cases)
        EXPECT_EQ(of_type(type, true, "\t"), text) << type;
    EXPECT_EQ(of_type("integer_range 3 4", false, "x."), "x.A.b.min=3\nx.A.b.max=4\n");
}

TEST_F(IntrospectTest, PasswordsAreMasked)
{
    const auto make = [](const std::string &api, const char *type) {
        metaDB.set("A." + api + ".type", type);
        metaDB.set("A." + api + ".default", "Secret");
        hdfDB.set("A." + api, "Secret");
        return "A." + api;
    };
    const std::string facts = ".default=********\nA.", value = ".value=********\n";
    EXPECT_EQ(describe(make("own", "password 0 9")),
              "A.own.type=password 0 9\nA.own" + facts + "own" + value);
    metaDB.set(make("linked", "string") + ".link", "A.own");
    EXPECT_EQ(describe("A.linked"), "A.linked.type=string\nA.linked" + facts + "linked" + value);
    model("A.group: type = password 0 9\nA.group.inherits: introspect = string");
    hdfDB.set("A.group.inherits", "Secret");
    EXPECT_EQ(describe("A.group.inherits"), "A.group.inherits.type=string\nA.group.inherits" + value);
    metaDB.set("A.own.default", "x"); // one byte
    hdfDB.remove("A.own");
    EXPECT_EQ(describe("A.own"), "A.own.type=password 0 9\nA.own.default=\nA.own.value=\n");
}

TEST_F(IntrospectTest, NothingThatGetWouldRefuse)
{
    appliance_root().write("etc/stats", "hd=1\n");
    model("A.b: perm = 0060; default = 7; type = integer_set 7 /etc/stats\nQ.names: type = string_set hd\n"
          "A.q: perm = 0060; type = integer /etc/stats Q.names; introspect = quality");
    hdfDB.set("A.b", "7");
    const std::string choices = "A.b.choices=[7]\nA.b.0=7\n";
    const std::string type = "A.b.type=integer_set 7 /etc/stats\n";
    const std::string values = "A.b.default=7\nA.b.value=7\n";
    EXPECT_EQ(describe("A.b", false, "", 0x0044), type + values + choices);
    EXPECT_EQ(describe("A.b", false, "", 0x0004), type + choices);
    EXPECT_EQ(describe("A.b", false, "", 0x0022), type + choices);
    EXPECT_EQ(describe("A.q", false, "", 0x0040), "A.q.type=quality\nA.q.hd=1\n");
    EXPECT_EQ(describe("A.q", false, "", 0x0004), "A.q.type=quality\n");
    metaDB.set("A.b.private", "true");
    EXPECT_EQ(describe("A.b", false, "", 0x0044), type + choices);
    EXPECT_EQ(describe("A.b", false, "", 0xf044), type + values + choices);
}

TEST_F(IntrospectTest, ProfileChoices)
{
    write_profiles();
    EXPECT_EQ(of_type("string_set x,profile,string_set y"),
              "A.b.choices=[x]\nA.b.0=x\nA.b.0=default\nA.b.1=c.d\nA.b.2=b\nA.b.3=a\n"
              "A.b.choices=[y]\nA.b.1=y\n");
    metaDB.set("A.Profiles.name.type", "profile2");
    hdfDB.set("A.Profiles.name", "b");
    EXPECT_EQ(describe("A.Profiles.name"), "A.Profiles.name.type=profile2\nA.Profiles.name.value=b\n"
                                           "A.Profiles.name.0=a,\nA.Profiles.name.1=b,50%\n");
}

TEST_F(IntrospectTest, QualityCounters)
{
    appliance_root().write("var/stats",
                           "HD_ready=2\nsd=1\nno counter\nhdtv : 9\nother hd=9\nSD x = :3\nhd=\n=4\n"
                           "hd=1\nhd=-5\nbig=99999999999999999999\nbig=1\n=7");
    model("Q.names: type = string_set hd HD_ sd none big\nQ.count: type = quality /var/stats Q.names");
    hdfDB.set("Q.count", "");
    const std::string facts = "Q.count.type=quality /var/stats Q.names\nQ.count.value=\n";
    EXPECT_EQ(describe("Q.count"), facts + "Q.count.hd=3\nQ.count.HD_=2\nQ.count.sd=4\nQ.count.none=0\n"
                                           "Q.count.big=9223372036854775807\n");
    std::filesystem::remove(appliance_root().path("var/stats"));
    EXPECT_EQ(describe("Q.count"),
              facts + "Q.count.hd=0\nQ.count.HD_=0\nQ.count.sd=0\nQ.count.none=0\nQ.count.big=0\n");
    for (const char *type : {"quality /var/stats", "quality /var/stats Q.unknown"}) {
        metaDB.set("Q.count.type", type);
        EXPECT_EQ(describe("Q.count"), std::string("Q.count.type=") + type + "\nQ.count.value=\n");
    }
    std::string names = "string_set";
    for (int i = 0; i < 20; ++i)
        names += " c" + std::to_string(i);
    metaDB.set("Q.names.type", names);
    metaDB.set("Q.count.type", "quality /var/stats Q.names");
    EXPECT_TRUE(describe("Q.count").ends_with("\nQ.count.c15=0\n"));
}

} // namespace
} // namespace qvcd

#include "funcs/add_remove_map.h"
#include "funcs/describers.h"
#include "funcs/introspect_map.h"
#include "funcs/read_map.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/profile_files.h"
#include "temp_folder.h"

#include <gtest/gtest.h>

namespace qvcd {
namespace {

const TempFolder &root()
{
    static const TempFolder folder;
    return folder;
}

// What a function writes to a stream.
template <class Write>
std::string written(Write write)
{
    char *text = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    write(out);
    std::fclose(out);
    std::string result(text, size);
    std::free(text);
    return result;
}

class IntrospectTest : public testing::Test {
  protected:
    static void SetUpTestSuite()
    {
        setenv("QV_SYSROOT", root().path().c_str(), 1);
        ASSERT_EQ(qv_sysroot(), root().path());
    }
    void SetUp() override
    {
        hdfdb_init();
        cmd_create_rfuncmap_hdf();
        cmd_create_ifuncmap_hdf();
    }
    void TearDown() override
    {
        cmd_destroy_ifuncmap_hdf();
        cmd_destroy_rfuncmap_hdf();
        profiledb_destroy();
        hdfdb_destroy();
        std::filesystem::remove_all(root().path("etc"));
    }

    static std::string describe(const std::string &api, bool compact = false, const std::string &prefix = {})
    {
        return written([&](std::FILE *out) { EXPECT_EQ(ifuncmap_introspect(prefix, api, compact, out), 0); });
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
};

TEST_F(IntrospectTest, NothingToTell)
{
    metaDB.set("A.type", "boolean"); // not inherited
    metaDB.set("A.none.perm", "0666");
    metaDB.set("A.empty.type", "");
    metaDB.set("A.hidden.introspect", "");
    metaDB.set("A.hidden.type", "boolean");
    for (const char *api : {"A.none", "A.empty", "A.hidden", "A.unknown"}) {
        EXPECT_EQ(written([&](std::FILE *out) { EXPECT_EQ(ifuncmap_introspect("", api, false, out), 1); }),
                  "")
            << api;
    }
}

TEST_F(IntrospectTest, IntrospectGoesBeforeType)
{
    metaDB.set("A.b.introspect", "boolean");
    metaDB.set("A.b.type", "string_set on off");
    metaDB.set("A.b.default", "");
    hdfDB.set("A.b", "1");
    EXPECT_EQ(describe("A.b"), "A.b.type=boolean\nA.b.default=\nA.b.value=1\n"
                               "A.b.choices=[0,1]\nA.b.0=0\nA.b.1=1\n");
}

TEST_F(IntrospectTest, Alternatives)
{
    const std::pair<const char *, const char *> cases[] = {
        {"boolean", "A.b.choices=[0,1]\nA.b.0=0\nA.b.1=1\n"},
        {"string", ""},
        {"blank,ipaddress", ""},
        {"integer_set 1 2 4", "A.b.choices=[1,2,4]\nA.b.0=1\nA.b.1=2\nA.b.2=4\n"},
        {"string_set", ""},
        {"string_set a b,integer_set 7", "A.b.choices=[a,b]\nA.b.0=a\nA.b.1=b\nA.b.choices=[7]\nA.b.2=7\n"},
        {"string_set a,boolean,domainname_list b",
         "A.b.choices=[a]\nA.b.0=a\nA.b.choices=[0,1]\nA.b.0=0\nA.b.1=1\nA.b.choices=[b]\nA.b.1=b\n"},
        {"float_range -1.5 2", "A.b.min=-1.5\nA.b.max=2\n"},
        {"string_length 8", "A.b.min=8\nA.b.max=\n"},
        {"integer_range 0 100,blank", "A.b.min=0\nA.b.max=100\nA.b.min=\nA.b.max=\n"},
        {"signed_integer_set -1 5,unknown x",
         "A.b.choices=[-1,5]\nA.b.0=-1\nA.b.1=5\nA.b.choices=[x]\nA.b.2=x\n"},
        {"blank,signed_integer_range -5 5", "A.b.min=-5\nA.b.max=5\n"},
    };
    for (const auto &[type, lines] : cases)
        EXPECT_EQ(of_type(type), lines) << type;
}

TEST_F(IntrospectTest, CompactMode)
{
    const std::pair<const char *, const char *> cases[] = {
        {"boolean", "\t0 1"}, {"string_set auto manual", "\tauto manual "},
        {"string_set", "\t"}, {"integer_range 1 10,blank", "\t1-10 \t- "},
        {"string", ""},
    };
    for (const auto &[type, text] : cases)
        EXPECT_EQ(of_type(type, true, "\t"), text) << type;
}

TEST_F(IntrospectTest, PrefixStandsBeforeTheKeysOfDescribers)
{
    EXPECT_EQ(of_type("integer_set 3", false, "x."), "x.A.b.choices=[3]\nx.A.b.0=3\n");
    EXPECT_EQ(of_type("integer_range 3 4", false, "x."), "x.A.b.min=3\nx.A.b.max=4\n");
}

TEST_F(IntrospectTest, PasswordsAreMasked)
{
    const std::pair<const char *, const char *> cases[] = {{"", ""}, {"x", ""}, {"xy", "********"}};
    metaDB.set("A.p.type", "password 0 9");
    for (const auto &[stored, shown] : cases) {
        hdfDB.set("A.p", stored);
        EXPECT_EQ(describe("A.p"), std::string("A.p.type=password 0 9\nA.p.value=") + shown + "\n");
    }
}

TEST_F(IntrospectTest, WhereTheValueComesFrom)
{
    metaDB.set("A.live.type", "string");
    metaDB.set("A.live.read", "zero_rfunc");
    EXPECT_EQ(describe("A.live"), "A.live.type=string\nA.live.value=0\n");
    hdfDB.set("A.live", "stored");
    EXPECT_EQ(describe("A.live"), "A.live.type=string\nA.live.value=stored\n");
    metaDB.set("A.live.dynamic", "true");
    EXPECT_EQ(describe("A.live"), "A.live.type=string\nA.live.value=0\n");
    metaDB.set("A.live.read", "no_rfunc");
    EXPECT_EQ(describe("A.live"), "A.live.type=string\nA.live.value=\n");
    metaDB.set("A.none.type", "string");
    metaDB.set("A.none.read", "no_rfunc");
    EXPECT_EQ(describe("A.none"), "A.none.type=string\n");
}

TEST_F(IntrospectTest, ProfileChoices)
{
    root().write("etc/profiles/b.hdf", "E.rate = 1\n");
    root().write("etc/profiles/a.hdf", "E.rate = 1\n");
    profiledb_load();
    EXPECT_EQ(of_type("string_set x,profile,string_set y"),
              "A.b.choices=[x]\nA.b.0=x\nA.b.0=default\nA.b.1=b\nA.b.2=a\nA.b.choices=[y]\nA.b.1=y\n");
    EXPECT_EQ(of_type("profile", true, "\t"), "defaultba");
}

TEST_F(IntrospectTest, ProfileChoicesOfAGroup)
{
    root().write("etc/profiles/b.hdf", "A.Profiles.name = b\nA.Profiles.desc = 50%%\n");
    root().write("etc/profiles/a.hdf", "A.Profiles.name = a\n");
    root().write("etc/profiles/c.hdf", "X.Profiles.name = c\n");
    profiledb_load();
    metaDB.set("A.Profiles.name.type", "string_set x,profile2");
    hdfDB.set("A.Profiles.name", "b");
    EXPECT_EQ(describe("A.Profiles.name"),
              "A.Profiles.name.type=string_set x,profile2\nA.Profiles.name.value=b\n"
              "A.Profiles.name.choices=[x]\nA.Profiles.name.0=x\n"
              "A.Profiles.name.0=a,\nA.Profiles.name.1=b,50%\n");
}

TEST_F(IntrospectTest, QualityCounters)
{
    root().write("var/stats",
                 "HD_ready=2\nsd=1\nno counter\nhdtv : 9\nSD x = :3\nhd=\n=4\nother=5\nhd=1\n=7");
    metaDB.set("Q.names.type", "string_set hd HD_ sd none");
    metaDB.set("Q.count.type", "quality /var/stats Q.names");
    hdfDB.set("Q.count", "");
    const std::string facts = "Q.count.type=quality /var/stats Q.names\nQ.count.value=\n";
    EXPECT_EQ(describe("Q.count"), facts + "Q.count.hd=3\nQ.count.HD_=2\nQ.count.sd=4\nQ.count.none=0\n");
    std::filesystem::remove(root().path("var/stats"));
    EXPECT_EQ(describe("Q.count"), facts + "Q.count.hd=0\nQ.count.HD_=0\nQ.count.sd=0\nQ.count.none=0\n");
}

TEST_F(IntrospectTest, QualityNeedsItsCategories)
{
    for (const char *type : {"quality", "quality /var/stats", "quality /var/stats Q.unknown"}) {
        metaDB.set("Q.count.type", type);
        hdfDB.set("Q.count", "");
        EXPECT_EQ(describe("Q.count"), std::string("Q.count.type=") + type + "\nQ.count.value=\n");
    }
    std::string names = "string_set";
    for (int i = 0; i < 20; ++i)
        names += " c" + std::to_string(i);
    metaDB.set("Q.names.type", names);
    metaDB.set("Q.count.type", "quality /var/stats Q.names");
    const std::string text = describe("Q.count");
    EXPECT_NE(text.find("Q.count.c15=0\n"), std::string::npos);
    EXPECT_EQ(text.find("Q.count.c16=0\n"), std::string::npos);
}

TEST(KvReadline, Lines)
{
    struct Line {
        std::string text;
        std::string key;
        std::string value;
        std::size_t length;
    };
    const Line lines[] = {
        {"k=v\nnext=1", "k", "v", 4},
        {"k", "old", "old", 1},
        {"k == \t: v w =\n", "k ", "v w =", 14},
        {"=v", "old", "v", 2},
        {"k=\n", "k", "", 3},
        {"\n", "old", "old", 1},
        {"", "old", "old", 0},
        {"k=" + std::string(2000, 'v'), "k", std::string(1021, 'v'), 1023},
    };
    for (const Line &line : lines) {
        std::string_view text = line.text;
        std::string key = "old";
        std::string value = "old";
        EXPECT_EQ(kv_readline(text, key, value), line.length) << line.text;
        EXPECT_EQ(key, line.key) << line.text;
        EXPECT_EQ(value, line.value) << line.text;
        EXPECT_EQ(text.size(), line.text.size() - line.length);
    }
}

// What a member function was called with.
std::string called;

int record_add(std::string_view file, std::string_view api, std::string_view value, std::FILE *)
{
    called = std::string("add ").append(file).append(" ").append(api).append(" ").append(value);
    return 7;
}

int record_remove(std::string_view file, std::string_view api, std::string_view value, std::FILE *)
{
    called = std::string("remove ").append(file).append(" ").append(api).append(" ").append(value);
    return 8;
}

TEST(MemberMaps, AttributeNamesTheFunction)
{
    hdfdb_init();
    cmd_create_addfuncmap_hdf();
    cmd_create_removefuncmap_hdf();
    addfuncmap_set_profile(record_add);
    removefuncmap_set_profile(record_remove);
    metaDB.set("M.none.perm", "0666");
    EXPECT_EQ(addfuncmap_add("/f", "M.none", "v", nullptr), 0);
    EXPECT_EQ(removefuncmap_remove("/f", "M.none", "v", nullptr), 0);
    EXPECT_EQ(called, "");
    struct Case {
        std::string add;
        std::string remove;
        int add_result;
        std::string add_call;
        int remove_result;
        std::string remove_call;
    };
    const Case cases[] = {
        {"unknown", "unknown", 0, "", 0, ""},
        {" , ", " , ", 0, "", 0, ""},
        {"profile_addfunc", "profile_removefunc", 7, "add /f M.x v", 8, "remove /f M.x v"},
        {"profile_addfunc more words", "profile_removefunc more words", 7, "add /f M.x v", 0, ""},
    };
    for (const Case &c : cases) {
        metaDB.set("M.x.add", c.add);
        metaDB.set("M.x.remove", c.remove);
        called.clear();
        EXPECT_EQ(addfuncmap_add("/f", "M.x", "v", nullptr), c.add_result) << c.add;
        EXPECT_EQ(called, c.add_call) << c.add;
        called.clear();
        EXPECT_EQ(removefuncmap_remove("/f", "M.x", "v", nullptr), c.remove_result) << c.remove;
        EXPECT_EQ(called, c.remove_call) << c.remove;
    }
    cmd_destroy_removefuncmap_hdf();
    cmd_destroy_addfuncmap_hdf();
    hdfdb_destroy();
}

} // namespace
} // namespace qvcd

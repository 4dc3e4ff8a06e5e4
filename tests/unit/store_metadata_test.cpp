#include "store/api.h"
#include "store/flags.h"
#include "store/hdf_file.h"
#include "trees_fixture.h"

#include <random>

namespace qvcd {
namespace {

class Apis : public TreesTest {
  protected:
    void SetUp() override
    {
        TreesTest::SetUp();
        metaDB.set("A.perm", "4422");
        for (const char *name : {"A.b", "A.g.c", "A.g.d", "B.e"}) {
            metaDB.set(std::string(name) + ".attr", "x");
            hdfDB.set(name, "1");
        }
        visit("");
    }

    static std::vector<std::string> visit(std::string_view group, const std::function<void()> &at_each = {})
    {
        std::vector<std::string> names;
        visit_apis(group, [&](const Api &api) {
            names.push_back(api.name());
            if (at_each)
                at_each();
        });
        return names;
    }
};
using Names = std::vector<std::string>;

// Each change is made when the records of all APIs are there.
TEST_F(Apis, RecordsFollowTheTrees)
{
    const auto perm = [](const char *name) { return find_api(name)->perm(); };
    metaDB.set("A.perm", "7000");
    EXPECT_EQ(perm("A.g.c"), 0x7000U) << "another value, two levels up";
    metaDB.set("A.g.perm", "1");
    EXPECT_EQ(perm("A.g.c"), 0x1U) << "a new attribute in between";
    metaDB.remove("A.g.perm");
    EXPECT_EQ(perm("A.g.c"), 0x7000U);
    metaDB.set("B.e.type", "blank,password 4 8");
    metaDB.set("A.b.link", "B.e");
    EXPECT_TRUE(find_api("A.b")->is_password());
    EXPECT_EQ(find_api("A.b")->linked(), find_api("B.e"));

    Api *const before = find_api("B.e");
    EXPECT_EQ(meta_set("B.e", "mod", "1"), 0);
    before->store("2");
    EXPECT_EQ(find_api("B.e"), before) << "flags and values make no new record";
    EXPECT_TRUE(before->is_raised(Api::Flag::mod) && before->value() == "2");
    hdfDB.remove("B.e");
    EXPECT_EQ(find_api("B.e"), nullptr);
    EXPECT_EQ(find_api("A.b")->linked(), nullptr);
    hdfDB.set("B.e", "3");
    EXPECT_EQ(find_api("B.e")->value(), "3");
    hdfDB.set("B.e.sub", "4");
    EXPECT_EQ(find_api("B.e"), nullptr) << "it became a group";
    for (const char *name : {"", ".", "A", "A.g", "A.g.", "A.g.c.attr", "Nowhere"})
        EXPECT_EQ(find_api(name), nullptr) << name;
    hdfdb_init();
    EXPECT_EQ(find_api("A.b"), nullptr) << "of other trees";
}

TEST_F(Apis, AreVisitedInTheOrderOfTheTree)
{
    EXPECT_EQ(visit(""), (Names{"A.b", "A.g.c", "A.g.d", "B.e"}));
    EXPECT_EQ(visit("Nowhere"), Names{});
    hdfDB.set("A.gx", "1");
    for (int times = 0; times < 4; ++times) // with and without an order at hand
        EXPECT_EQ(visit("A"), (Names{"A.b", "A.g.c", "A.g.d", "A.gx"}));
    EXPECT_EQ(visit("A.g"), (Names{"A.g.c", "A.g.d"}));
}

TEST_F(Apis, VisitsMayChangeTheTrees)
{
    const auto at_first = [](const std::function<void()> &change) {
        return [change, done = false]() mutable {
            if (!std::exchange(done, true))
                change();
        };
    };
    EXPECT_EQ(visit("A", at_first([] { hdfDB.set("A.g.new", "1"); })),
              (Names{"A.b", "A.g.c", "A.g.d", "A.g.new"}));
    EXPECT_EQ(visit("A", at_first([] { hdfDB.remove("A.g.new"); })), (Names{"A.b", "A.g.c", "A.g.d"}));
    EXPECT_EQ(visit("A", at_first([] { hdfDB.remove("A.g.c"); })), (Names{"A.b", "A.g.d"}));
    EXPECT_EQ(visit("A", at_first([] { hdfDB.remove("A.g"); })), (Names{"A.b"}));
    EXPECT_EQ(visit("", at_first([] {
                        metaDB.set("A.perm", "1");
                        visit("");
                    })),
              (Names{"A.b", "B.e"}));
    EXPECT_EQ(visit("", at_first([] { hdfdb_init(); })), Names{"A.b"});
}

constexpr Classifier kClassifiers[] = {flag_modified, flag_apply_pending, flag_modified_or_unapplied};

// The index must give what a walk over everything gives.
void expect_same_as_walk(const std::string &name)
{
    const Node node = metaDB.find(name);
    for (const Classifier flag : kClassifiers)
        EXPECT_EQ(flagged_apis(node, name, flag), hdfutils_parent_names(node, name, flag)) << name;
}

using Flags = TreesTest;

TEST_F(Flags, StayRightWhateverHappens)
{
    std::mt19937 random(7);
    const auto any = [&](int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); };
    const auto any_api = [&] {
        return std::string("G") + std::to_string(any(5)) + ".H" + std::to_string(any(5)) + ".a" +
               std::to_string(any(20));
    };
    for (int step = 0; step < 6000; ++step) {
        const std::string api = any_api();
        const char *const flag = any(2) ? "mod" : "noapp";
        switch (any(8)) {
        case 0:
            metaDB.set(api + ".inserted", "1");
            break;
        case 1:
            metaDB.remove(any(50) ? api : api.substr(0, 2));
            break;
        case 2:
        case 3:
            meta_set(api, flag, "0");
            break;
        default:
            metaDB.set(api + ".attr", "k");
            meta_set(api, flag, any(3) ? "1" : "2");
        }
        if (step % 97 == 0) {
            expect_same_as_walk("");
            expect_same_as_walk("G1");
        }
    }
}

TEST_F(Flags, AreFoundWhenMetadataRaisesThem)
{
    EXPECT_TRUE(flagged_apis(metaDB.root(), "", flag_modified).empty());
    const std::string file =
        appliance_root().write("m.hdf", "A.b.c { \n attr = x\n}\nA.noapp = 1\nD.e.mod = 1\n");
    ASSERT_EQ(hdf_read_own_file(file, metaDB).result, HdfResult::ok);
    flags_forget();
    EXPECT_EQ(flagged_apis(metaDB.root(), "", flag_modified_or_unapplied),
              (std::vector<std::string>{"A", "D.e"}));
}

TEST_F(Flags, AreFoundWhenThereAreMany)
{
    for (int i = 0; i < 3000; ++i) {
        const std::string api = "A.api" + std::to_string(i);
        metaDB.set(api + ".attr", "x");
        meta_set(api, "mod", "1");
        if (i % 500 == 0)
            expect_same_as_walk("A");
        if (i % 500 == 499)
            expect_same_as_walk("A.api1"); // and not what only begins so
    }
    for (int i = 10; i < 3000; ++i)
        meta_set("A.api" + std::to_string(i), "mod", "0");
    EXPECT_EQ(flagged_apis(metaDB.root(), "", flag_modified).size(), 10U);
    meta_set("A.api77", "mod", "1");
    expect_same_as_walk("");
}

class Meta : public TreesTest {
  protected:
    void SetUp() override
    {
        TreesTest::SetUp();
        model("A: perm = 4422; file = /top; read = r\nA.B: write = w; read =\nA.B.C: attr = c; type = "
              "string\nZ: attr = z");
    }
};

TEST_F(Meta, WhatComesFromFarIsAdopted)
{
    const struct {
        const char *attribute;
        std::optional<std::string> value;
        std::optional<std::string> adopted;
    } cases[] = {
        {"type", "string", std::nullopt},       // its own
        {"write", "w", std::nullopt},           // the parent's
        {"file", "/top", "/top"},               // the grandparent's
        {"read", std::nullopt, std::nullopt},   // an empty value hides what is above
        {"shadow", std::nullopt, std::nullopt}, // nowhere: nothing is noted
        {"B", std::nullopt, std::nullopt},      // a group of that name is no attribute
    };
    for (const auto &c : cases) {
        EXPECT_EQ(meta_get("A.B.C", c.attribute), c.value) << c.attribute;
        EXPECT_EQ(own_copy(MetaApi("A.B.C").adopted(c.attribute)), c.adopted) << c.attribute;
    }
    EXPECT_EQ(meta_get("Z", "file"), std::nullopt);
}

TEST_F(Meta, UnknownApisHaveNothingAndStayUnknown)
{
    for (const char *name : {"X", "A.B.D", "", ".", "A.B.C.", "a b"}) {
        EXPECT_EQ(meta_get(name, "perm"), std::nullopt) << name;
        EXPECT_EQ(meta_set(name, "mod", "1"), 1) << name;
        EXPECT_EQ(meta_get_perm(name), 0U) << name;
    }
    EXPECT_EQ(meta_get_perm("A.B.C"), 0x4422U);
    EXPECT_FALSE(metaDB.find("A.B.D"));
    EXPECT_EQ(meta_set("A.B.C", "mod", "1"), 0);
    meta_set("A.B.C", "noapp", "x"); // no number
    EXPECT_TRUE(hdfutils_parent_names(metaDB.root(), "", flag_apply_pending).empty());
    meta_set("A.B.C", "noapp", "1");
    EXPECT_EQ(hdfutils_parent_names(metaDB.root(), "", flag_modified_or_unapplied),
              std::vector<std::string>{"A.B.C"});
}

} // namespace
} // namespace qvcd

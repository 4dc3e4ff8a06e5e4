#include "store/api.h"

#include "store/database.h"

#include <gtest/gtest.h>

namespace qvcd {
namespace {

class Apis : public testing::Test {
  protected:
    void SetUp() override
    {
        hdfdb_init();
        metaDB.set("A.perm", "4422");
        for (const char *name : {"A.b", "A.g.c", "A.g.d", "B.e"}) {
            metaDB.set(std::string(name) + ".attr", "x");
            hdfDB.set(name, "1");
        }
        visit("");
    }
    void TearDown() override { hdfdb_destroy(); }

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

} // namespace
} // namespace qvcd

#include "store/database.h"

#include <gtest/gtest.h>

namespace qvcd {
namespace {

class Meta : public testing::Test {
  protected:
    void SetUp() override
    {
        hdfdb_init();
        for (const auto &[name, value] : std::initializer_list<std::pair<const char *, const char *>>{
                 {"A.perm", "4422"},
                 {"A.file", "/top"},
                 {"A.B.write", "w"},
                 {"A.B.C.attr", "c"},
                 {"A.B.C.type", "string"},
                 {"A.B.read", ""},
                 {"A.read", "r"},
                 {"Z.attr", "z"},
             })
            metaDB.set(name, value);
    }
    void TearDown() override { hdfdb_destroy(); }
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

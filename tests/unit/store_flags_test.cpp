#include "store/database.h"
#include "store/flags.h"
#include "store/hdf_file.h"
#include "temp_folder.h"

#include <gtest/gtest.h>
#include <random>

namespace qvcd {
namespace {

constexpr Classifier kClassifiers[] = {flag_modified, flag_apply_pending, flag_modified_or_unapplied};

// The index must give what a walk over everything gives.
void expect_same_as_walk(const std::string &name)
{
    const Node node = metaDB.find(name);
    for (const Classifier flag : kClassifiers)
        EXPECT_EQ(flagged_apis(node, name, flag), hdfutils_parent_names(node, name, flag)) << name;
}

class Flags : public testing::Test {
  protected:
    void SetUp() override { hdfdb_init(); }
    void TearDown() override { hdfdb_destroy(); }
};

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
    const TempFolder folder;
    EXPECT_TRUE(flagged_apis(metaDB.root(), "", flag_modified).empty());
    const std::string file = folder.write("m.hdf", "A.b.c { \n attr = x\n}\nA.noapp = 1\nD.e.mod = 1\n");
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

} // namespace
} // namespace qvcd

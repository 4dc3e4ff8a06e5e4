#pragma once

#include "appliance_root.h"
#include "store/database.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qvcd {

/// An empty root and empty trees.
class StatusTest : public OnEmptyRoot<testing::Test> {
  protected:
    void SetUp() override
    {
        OnEmptyRoot::SetUp();
        tree_library_init();
        hdfdb_init();
    }
    void TearDown() override { hdfdb_destroy(); }
};

using Values = std::vector<std::pair<std::string, std::string>>;

inline void set_values(const Values &settings)
{
    for (const auto &[name, value] : settings)
        ASSERT_TRUE(hdfDB.set(name, value)) << name;
}

/// The settings tree holds these and nothing else.
inline void only_values(const Values &settings)
{
    hdfdb_destroy();
    hdfdb_init();
    set_values(settings);
}

inline constexpr char kUntouched[] = "(what the caller had)";
inline constexpr char kNothing[] = "(none)";

/// What a read function gives: its value, kNothing when it gives none, and kUntouched when it leaves the
/// caller's text alone.
using Reader = bool (*)(const char *file, const char *attr, std::string &out, bool cached);
inline std::string read_with(Reader reader, const char *file, const char *attr, bool cached = false)
{
    std::string out = kUntouched;
    return reader(file, attr, out, cached) ? out : kNothing;
}

} // namespace qvcd

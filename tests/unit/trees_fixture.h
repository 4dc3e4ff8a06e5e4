#pragma once

#include "appliance_root.h"
#include "model_text.h"
#include "store/database.h"
#include "store/profile_files.h"

#include <gtest/gtest.h>

namespace qvcd {

/// An empty root, empty trees and no profiles.
class TreesTest : public OnEmptyRoot<testing::Test> {
  protected:
    void SetUp() override
    {
        OnEmptyRoot::SetUp();
        hdfdb_init();
    }
    void TearDown() override
    {
        profiledb_destroy();
        hdfdb_destroy();
    }

    /// Metadata as of model_text().
    static void model(std::string_view lines)
    {
        for (const std::string &line : split_words(model_text(lines), "\n")) {
            const std::size_t equals = line.find(" =");
            metaDB.set(line.substr(0, equals), line.substr(std::min(equals + 3, line.size())));
        }
    }
};

} // namespace qvcd

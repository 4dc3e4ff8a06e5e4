#pragma once

#include "change/history_store.h"
#include "platform/module.h"

#include <memory>

namespace qvcd {

/// What takes SQLite.
struct HistoryModule {
    static constexpr char kName[] = "history";

    /// Opens the database of this path of the machine, or makes it; its folder is there. The numbers of a new
    /// one go on after `last`. Throws HistoryError, HistoryDamaged.
    std::unique_ptr<HistoryStore> (*open)(const std::string &path, std::int64_t last);
};

} // namespace qvcd

#pragma once

#include "change/history_entry.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qvcd {

/// What keeps the history from being written or read; says why.
struct HistoryError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The file is no database, or a damaged one.
struct HistoryDamaged : HistoryError {
    using HistoryError::HistoryError;
};

inline constexpr std::int64_t kMaxHistoryEntries = 10'000;
inline constexpr std::int64_t kMaxHistoryBytes = 20 << 20;
inline constexpr std::size_t kMaxEntryValues = 10'000; ///< further ones are counted only
inline constexpr std::size_t kMaxEntryBytes = 2 << 20; ///< of their names and values

/// The entries on the disk. Every function may wait for the disk and throws HistoryError. Used by one thread
/// at a time.
class HistoryStore {
  public:
    virtual ~HistoryStore() = default;

    /// Adds an entry, in one step that is on the disk when this returns, and drops the oldest ones that are
    /// too many. Returns its number.
    virtual std::int64_t add(const HistoryEntry &entry) = 0;

    /// Says how the entry of this number ended, on the disk. Nothing happens when it is not there any more.
    virtual void end(std::int64_t number, std::string_view end) = 0;

    /// The number of the entry with this key; 0: there is none.
    virtual std::int64_t find(std::string_view key) = 0;

    /// Visits entries from the newest to the oldest, while `visit` gives true. With names only those that
    /// changed one of these APIs, or one below one of these groups.
    virtual void visit(const std::vector<std::string> &names,
                       const std::function<bool(const HistoryEntry &)> &visit) = 0;
};

} // namespace qvcd

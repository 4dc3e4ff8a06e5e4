#pragma once

#include "change/history_entry.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

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
inline constexpr std::int64_t kMaxHistoryBytes = 20 << 20; ///< as much again may wait in the log of SQLite
inline constexpr std::size_t kMaxEntryValues = 10'000;     ///< further ones are counted only
inline constexpr std::size_t kMaxEntryBytes = 2 << 20;     ///< of their names and values
inline constexpr std::size_t kMaxEntryTextBytes = 4096; ///< of each other text but the key; the rest is cut

/// The entries on the disk. Every function may wait for the disk, a second at most for other programs that
/// have the file open, and throws HistoryError. Used by one thread at a time.
class HistoryStore {
  public:
    virtual ~HistoryStore() = default;

    /// Adds an entry, in one step that is on the disk when this returns, and drops the oldest ones that are
    /// too many. Where there is one with its key, that one ends as this one says instead. Returns its number.
    virtual std::int64_t add(const HistoryEntry &entry) = 0;

    /// Says how the entry of this number ended, on the disk. Nothing happens when it is not there any more.
    virtual void end(std::int64_t number, std::string_view end) = 0;

    /// Says so of all that ended in one way.
    virtual void replace_end(std::string_view before, std::string_view after) = 0;

    /// The numbers of the entries, from the newest to the oldest. With names only of those that changed one
    /// of these APIs, or one below one of these groups.
    virtual std::vector<std::int64_t> numbers(const std::vector<std::string> &names) = 0;

    /// The entry of this number; nothing when it is not there any more.
    virtual std::optional<HistoryEntry> entry(std::int64_t number) = 0;

    /// The highest number that an entry ever got; 0: none.
    virtual std::int64_t last() = 0;

    /// False when the file was removed since it was opened, or another one has its name.
    virtual bool is_in_place() = 0;
};

} // namespace qvcd

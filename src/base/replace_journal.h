#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// One replacement that is under way: the new text's file and its target, and how to know the text again.
struct JournalEntry {
    std::string new_path;
    std::string target;
    std::size_t size = 0;
    std::uint64_t hash = 0;
};

std::uint64_t text_hash(std::string_view text); // FNV-1a

std::string journal_text(const std::vector<JournalEntry> &entries);

/// Nothing when the text is not the whole of a journal, or names what is none of our files.
std::optional<std::vector<JournalEntry>> parse_journal(std::string_view text);

/// Holds the entries on the disk while it lives; the destructor forgets them. One at a time: a second one
/// waits. Without entries there is no journal.
class Journal {
  public:
    explicit Journal(const std::vector<JournalEntry> &entries);
    ~Journal();
    Journal(const Journal &) = delete;
    Journal &operator=(const Journal &) = delete;

    /// Empties the file, to stay empty. 0, or the errno of what failed: a start may find the entries.
    int forget();

  private:
    bool is_there_ = false; // whole, even if it could not be flushed
    std::unique_lock<std::mutex> lock_;
};

/// Empties the journal's file, to stay empty. 0, or the errno of what failed.
int forget_journal();

} // namespace qvcd

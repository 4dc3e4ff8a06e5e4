#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qvcd {

/// A text stream into memory, one a thread: replies of whatever connection the thread serves. Used by one
/// thread, so the stream is not locked.
class ReplyStream {
  public:
    ReplyStream();
    ~ReplyStream();
    ReplyStream(const ReplyStream &) = delete;
    ReplyStream &operator=(const ReplyStream &) = delete;

    std::FILE *file() { return file_; }
    std::size_t size(); ///< bytes written and not cleared

    /// What was written so far; good until the next write. Nothing after memory ran out: half an answer must
    /// not look like a whole one.
    std::string_view text();
    bool broken() const { return broken_; }

    void clear(); ///< large memory is given back

  private:
    static ssize_t append(void *self, const char *bytes, std::size_t size);

    std::string text_;
    bool broken_ = false;
    std::FILE *file_;
};

/// Input of one connection that is no whole line yet, or waits its turn.
class LineInput {
  public:
    /// Takes the bytes in without copying them: they stay where they are until tidy(), which comes before the
    /// next add().
    void add(std::string_view bytes);

    bool empty() const { return rest_.empty(); }
    std::size_t held() const { return std::max(own_.size(), rest_.size()); } ///< bytes, taken ones included

    /// True when a whole line, or `limit` bytes of one, are there.
    bool has_line(std::size_t limit) { return line_size(limit) > 0; }

    /// Takes the next line off, with its newline, or `limit` bytes of a longer one; empty when there is
    /// neither. The view is good until tidy().
    std::string_view take(std::size_t limit) { return take_off(line_size(limit)); }
    /// The same with so many bytes, whatever they are; empty when there are fewer.
    std::string_view take_bytes(std::size_t size)
    {
        return has_bytes(size) ? take_off(size) : std::string_view();
    }
    bool has_bytes(std::size_t size) const { return rest_.size() >= size; }
    std::string_view take_all() { return take_off(rest_.size()); }

    /// Keeps what was not taken; call when no view is used any more.
    void tidy();

  private:
    std::size_t line_size(std::size_t limit);
    std::string_view take_off(std::size_t size);

    std::string own_;         // kept from one add() to the next
    std::string_view rest_;   // not taken yet; of own_, or of what was added last
    std::size_t scanned_ = 0; // there is no newline in so many bytes of it
    bool is_lent_ = false;    // rest_ is not of own_
};

} // namespace qvcd

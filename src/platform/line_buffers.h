#pragma once

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
    bool empty() const { return begin_ == text_.size(); }
    void append(std::string_view bytes) { text_.append(bytes); }

    /// True when a whole line, or `limit` bytes of one, are there.
    bool has_line(std::size_t limit);

    /// Takes the next line off, with its newline, or `limit` bytes of a longer one; when there is neither,
    /// all that is left. The view is good until the next append().
    std::string_view take(std::size_t limit);

    std::size_t size() const { return text_.size() - begin_; }

    /// Gives back what was taken; call when no view is used any more.
    void tidy();

  private:
    std::size_t line_size(std::size_t limit);

    std::string text_;
    std::size_t begin_ = 0;   // first byte that was not taken
    std::size_t scanned_ = 0; // no newline between begin_ and here
};

} // namespace qvcd

#include "platform/line_buffers.h"

#include <algorithm>
#include <new>
#include <stdio_ext.h>

namespace qvcd {

namespace {
constexpr std::size_t kKeepBytes = std::size_t{256} << 10; // larger memory is given back after use
} // namespace

ReplyStream::ReplyStream() : file_(::fopencookie(this, "w", {nullptr, &append, nullptr, nullptr}))
{
    if (!file_)
        throw std::bad_alloc();
    __fsetlocking(file_, FSETLOCKING_BYCALLER);
}

ReplyStream::~ReplyStream()
{
    std::fclose(file_);
}

// The stream's cookie function. The C library must not see an exception.
ssize_t ReplyStream::append(void *self, const char *bytes, std::size_t size)
{
    auto *const stream = static_cast<ReplyStream *>(self);
    try {
        if (!stream->broken_)
            stream->text_.append(bytes, size);
    } catch (const std::bad_alloc &) {
        stream->broken_ = true;
        stream->text_.clear();
    }
    return static_cast<ssize_t>(size);
}

std::size_t ReplyStream::size()
{
    return text_.size() + __fpending(file_);
}

std::string_view ReplyStream::text()
{
    std::fflush(file_);
    return text_;
}

void ReplyStream::clear()
{
    std::fflush(file_);
    text_.clear();
    if (text_.capacity() > kKeepBytes)
        text_.shrink_to_fit();
    broken_ = false;
}

// The size of what can be handed out now; 0 when that is no whole line.
std::size_t LineInput::line_size(std::size_t limit)
{
    scanned_ = std::max(scanned_, begin_);
    const std::size_t newline = text_.find('\n', scanned_);
    if (newline != std::string::npos && newline - begin_ < limit)
        return newline - begin_ + 1;
    scanned_ = newline == std::string::npos ? text_.size() : newline;
    return size() >= limit ? limit : 0;
}

bool LineInput::has_line(std::size_t limit)
{
    return line_size(limit) > 0;
}

std::string_view LineInput::take(std::size_t limit)
{
    std::size_t taken = line_size(limit);
    if (taken == 0)
        taken = size();
    const std::string_view line(text_.data() + begin_, taken);
    begin_ += taken;
    return line;
}

void LineInput::tidy()
{
    text_.erase(0, begin_);
    scanned_ = scanned_ > begin_ ? scanned_ - begin_ : 0;
    begin_ = 0;
    // A long line that comes in small pieces must not be copied with each of them.
    if (text_.empty() || (text_.capacity() > kKeepBytes && text_.size() < text_.capacity() / 4))
        text_.shrink_to_fit();
}

} // namespace qvcd

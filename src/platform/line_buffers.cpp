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

void LineInput::add(std::string_view bytes)
{
    is_lent_ = rest_.empty();
    if (is_lent_) {
        rest_ = bytes;
        return;
    }
    own_.erase(0, own_.size() - rest_.size());
    own_.append(bytes);
    rest_ = own_;
}

// The size of what can be handed out now; 0 when that is no whole line.
std::size_t LineInput::line_size(std::size_t limit)
{
    const std::size_t newline = rest_.find('\n', scanned_);
    scanned_ = std::min(newline, rest_.size());
    if (newline < limit) // and not npos
        return newline + 1;
    return rest_.size() >= limit ? limit : 0;
}

std::string_view LineInput::take_off(std::size_t size)
{
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    scanned_ -= std::min(scanned_, size);
    return taken;
}

void LineInput::tidy()
{
    if (rest_.empty())
        own_ = std::string();
    else if (is_lent_)
        own_ = rest_;
    else if (rest_.size() > own_.size() / 2)
        return; // to move it with each turn would cost more than it holds
    else
        own_.erase(0, own_.size() - rest_.size());
    // A long line that comes in small pieces must not be copied with each of them.
    if (own_.capacity() > kKeepBytes && own_.size() < own_.capacity() / 4)
        own_.shrink_to_fit();
    rest_ = own_;
    is_lent_ = false;
}

} // namespace qvcd

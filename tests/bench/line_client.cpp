#include "line_client.h"

#include "platform/socket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>

namespace qvcd::bench {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBufferBytes = std::size_t{256} << 10;

} // namespace

LineClient::LineClient(const std::string &path)
    : socket_(connect_unix(path, 60s)), buffer_(kBufferBytes, '\0')
{
    if (!socket_)
        throw std::runtime_error("cannot connect to " + path + ": " + std::strerror(errno));
    set_receive_timeout(socket_.get(), 60s);
}

void LineClient::send(std::string_view bytes)
{
    if (!send_all(socket_.get(), bytes, 60s))
        throw std::runtime_error(std::string("cannot send: ") + std::strerror(errno));
}

void LineClient::fill()
{
    if (begin_ == end_)
        begin_ = end_ = 0;
    if (end_ == buffer_.size()) {
        buffer_.erase(0, begin_);
        end_ -= begin_;
        begin_ = 0;
        buffer_.resize(std::max(kBufferBytes, 2 * end_));
    }
    const ssize_t n = ::recv(socket_.get(), buffer_.data() + end_, buffer_.size() - end_, 0);
    if (n <= 0)
        throw std::runtime_error(n == 0 ? "the connection was closed" : std::strerror(errno));
    end_ += static_cast<std::size_t>(n);
}

std::string_view LineClient::line()
{
    std::size_t scanned = begin_;
    for (;;) {
        const void *newline = std::memchr(buffer_.data() + scanned, '\n', end_ - scanned);
        if (newline) {
            const std::string_view found(buffer_.data() + begin_, static_cast<const char *>(newline) -
                                                                      buffer_.data() -
                                                                      static_cast<std::ptrdiff_t>(begin_));
            begin_ += found.size() + 1;
            return found;
        }
        const std::size_t unread = end_ - begin_;
        fill();
        scanned = begin_ + unread;
    }
}

void LineClient::skip_lines(std::size_t count)
{
    while (count-- > 0)
        line();
}

void LineClient::skip_bytes(std::size_t count)
{
    while (count > end_ - begin_) {
        count -= end_ - begin_;
        begin_ = end_;
        fill();
    }
    begin_ += count;
}

std::size_t LineClient::count_to_end()
{
    std::size_t count = end_ - begin_;
    for (;;) {
        const ssize_t n = ::recv(socket_.get(), buffer_.data(), buffer_.size(), 0);
        if (n < 0)
            throw std::runtime_error(std::strerror(errno));
        if (n == 0)
            break;
        count += static_cast<std::size_t>(n);
    }
    begin_ = end_ = 0;
    return count;
}

bool can_connect(const std::string &path)
{
    return static_cast<bool>(connect_unix(path, 1s));
}

} // namespace qvcd::bench

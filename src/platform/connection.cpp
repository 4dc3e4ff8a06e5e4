#include "platform/log.h"
#include "platform/server.h"
#include "platform/socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdio_ext.h>
#include <sys/socket.h>

namespace qvcd {

namespace {
constexpr std::size_t kReadBytes = std::size_t{16} << 10;
constexpr std::size_t kKeepBytes = std::size_t{256} << 10; // larger buffers are given back after use
} // namespace

ServerConnection::ServerConnection(int socket, std::chrono::milliseconds send_patience, ServerPlace *place)
    : socket_(socket), send_patience_(send_patience), place_(place), in_size_(kReadBytes),
      in_(std::make_unique_for_overwrite<char[]>(in_size_)),
      out_(::fopencookie(this, "w", {nullptr, &append_reply, nullptr, nullptr}))
{
    if (!out_)
        throw std::bad_alloc();
    __fsetlocking(out_, FSETLOCKING_BYCALLER);
}

ServerConnection::~ServerConnection()
{
    std::fclose(out_);
}

// ---- Input ----

// The size of what can be handed out now: a line with its newline, or `limit` bytes of a longer one; else 0.
std::size_t ServerConnection::next_piece(std::size_t limit)
{
    const std::size_t have = std::min(in_end_ - in_begin_, limit);
    const std::size_t known = std::min(in_scanned_ - in_begin_, have);
    const char *const start = in_.get() + in_begin_;
    if (have > known) {
        if (const void *newline = std::memchr(start + known, '\n', have - known))
            return static_cast<std::size_t>(static_cast<const char *>(newline) - start) + 1;
        in_scanned_ = in_begin_ + have;
    }
    return have == limit && limit < kMaxLineBytes ? limit : 0;
}

ServerConnection::Read ServerConnection::read_line(std::string &line, std::size_t limit,
                                                   std::chrono::milliseconds timeout)
{
    const std::size_t most = limit < kMaxLineBytes ? limit : kMaxLineBytes + 1; // the newline does not count
    Deadline deadline;
    for (bool first = true;; first = false) {
        std::size_t size = next_piece(most);
        if (size == 0 && in_end_ - in_begin_ >= most)
            return give_up(Read::bad, "a line is too long");
        if (size == 0 && ended_)
            size = in_end_ - in_begin_;
        if (size > 0) {
            line.assign(in_.get() + in_begin_, size);
            in_begin_ += size;
            in_scanned_ = std::max(in_scanned_, in_begin_);
            return Read::line;
        }
        if (ended_)
            return Read::end;
        if (first)
            deadline = deadline_in(timeout);
        if (fill(timeout, deadline, first))
            continue;
        if (errno != EAGAIN)
            return give_up(Read::end, std::strerror(errno));
        return give_up(in_end_ > in_begin_ ? Read::bad : Read::idle, "no line came in time");
    }
}

// One read brings every line that waits. The wait for a line's first bytes is the socket's own time-out, so
// it costs no further system call; a line that dribbles in is held to the deadline of the whole. False with
// errno set when nothing came; the end of input is no failure.
bool ServerConnection::fill(std::chrono::milliseconds timeout, Deadline deadline, bool first)
{
    make_room();
    if (first && receive_timeout_ != timeout) {
        set_receive_timeout(socket_, timeout);
        receive_timeout_ = timeout;
    }
    for (;; first = false) {
        if (!first) {
            const int events = poll_until(socket_, POLLIN, deadline);
            if (events == 0)
                errno = EAGAIN;
            if (events <= 0)
                return false;
        }
        const ssize_t n = ::recv(socket_, in_.get() + in_end_, in_size_ - in_end_, first ? 0 : MSG_DONTWAIT);
        if (n >= 0) {
            in_end_ += static_cast<std::size_t>(n);
            ended_ = n == 0;
            return true;
        }
        if (errno != EINTR && (first || errno != EAGAIN))
            return false;
    }
}

void ServerConnection::make_room()
{
    const std::size_t have = in_end_ - in_begin_;
    if (have == 0 && in_size_ > kKeepBytes) {
        in_size_ = kReadBytes;
        in_ = std::make_unique_for_overwrite<char[]>(in_size_);
    } else if (have > in_size_ / 2) {
        std::unique_ptr<char[]> larger = std::make_unique_for_overwrite<char[]>(2 * in_size_);
        std::memcpy(larger.get(), in_.get() + in_begin_, have);
        in_ = std::move(larger);
        in_size_ *= 2;
    } else {
        std::memmove(in_.get(), in_.get() + in_begin_, have);
    }
    in_scanned_ -= in_begin_;
    in_begin_ = 0;
    in_end_ = have;
}

ServerConnection::Read ServerConnection::give_up(Read why, const char *reason)
{
    qv_log_print(kLogDebug, "connection closed: %s\n", reason);
    ended_ = true;
    in_begin_ = in_scanned_ = in_end_ = 0;
    return why;
}

bool ServerConnection::line_waiting() const
{
    return unread().find('\n') != std::string_view::npos;
}

// ---- Output ----

std::FILE *ServerConnection::out()
{
    return out_;
}

// The stream's cookie function. The C library must not see an exception.
ssize_t ServerConnection::append_reply(void *connection, const char *bytes, std::size_t size)
{
    auto *self = static_cast<ServerConnection *>(connection);
    try {
        if (!self->broken_)
            self->reply_.append(bytes, size);
        return static_cast<ssize_t>(size);
    } catch (const std::bad_alloc &) {
        self->broken_ = true; // half an answer must not look like a whole one
        return 0;
    }
}

std::size_t ServerConnection::pending()
{
    return reply_.size() + __fpending(out_);
}

bool ServerConnection::flush()
{
    std::fflush(out_);
    if (!broken_ && !send_all(socket_, reply_, send_patience_)) {
        qv_log_print(kLogDebug, "an answer was not read: %s\n", std::strerror(errno));
        broken_ = true;
    }
    reply_.clear();
    if (reply_.capacity() > kKeepBytes)
        reply_.shrink_to_fit();
    return !broken_;
}

// ---- Waiting ----

// The place first: the client may take its time to read.
void ServerConnection::begin_wait() noexcept
{
    if (place_)
        place_->leave();
    if (pending() > 0)
        flush();
}

void ServerConnection::end_wait() noexcept
{
    if (place_)
        place_->take_again();
}

} // namespace qvcd

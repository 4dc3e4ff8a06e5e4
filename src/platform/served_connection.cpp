#include "platform/served_connection.h"

#include "platform/log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace qvcd {

namespace {

constexpr std::size_t kSliceReplyBytes = std::size_t{64} << 10;
constexpr std::size_t kDrainBytes = std::size_t{4} << 20;

// Those of poll(2) are the same bits.
std::uint32_t epoll_events(short poll_events)
{
    static_assert(EPOLLIN == POLLIN && EPOLLOUT == POLLOUT);
    return static_cast<std::uint32_t>(poll_events);
}

} // namespace

ServedConnection::ServedConnection(Channel channel, Peer peer, std::unique_ptr<LineHandler> handler)
    : channel_(std::move(channel)), peer_(std::move(peer)), handler_(std::move(handler))
{
}

ServedConnection::Greeting ServedConnection::greet(const MakeHandler &make_handler)
{
    if (channel_.handshake()) {
        peer_.certificate_user = channel_.certificate_user();
        handler_ = make_handler(peer_);
        return Greeting::done;
    }
    if (errno == EAGAIN)
        return Greeting::waits;
    closing_ = true;
    return Greeting::failed;
}

// ---- Input ----

ServedConnection::Came ServedConnection::read(std::span<char> buffer)
{
    const ssize_t n = channel_.read(buffer.data(), buffer.size());
    if (n < 0)
        return errno == EAGAIN || errno == EINTR ? Came::nothing : Came::failure;
    const auto size = static_cast<std::size_t>(n);
    input_ended_ = size == 0;
    all_read_ = channel_.in_clear() && size < buffer.size();
    input_.add({buffer.data(), size});
    return Came::something;
}

std::uint32_t ServedConnection::read_events() const
{
    return epoll_events(channel_.read_events());
}

std::size_t ServedConnection::line_limit() const
{
    const std::size_t limit = handler_->max_line_bytes();
    return limit == kMaxLineBytes ? limit + 1 : limit; // with the newline
}

void ServedConnection::converse(LineConnection &face, ReplyStream &replies, std::chrono::microseconds slice)
{
    if (!closing_ && handler_->has_news() && handler_->news(face) == LineHandler::Next::close)
        closing_ = true;
    std::optional<Deadline> until; // a line that comes alone needs no clock
    while (!closing_) {
        const std::size_t raw = handler_->raw_bytes();
        const std::string_view next = take_next(raw, face);
        if (next.empty())
            return;
        if (!until && !input_.empty())
            until = std::chrono::steady_clock::now() + slice;
        answered_ = true;
        if (hand_over(next, raw > 0, face) == LineHandler::Next::close)
            closing_ = true;
        if (replies.size() > kSliceReplyBytes || (until && std::chrono::steady_clock::now() >= *until))
            return;
    }
}

bool ServedConnection::has_work()
{
    const std::size_t raw = handler_->raw_bytes();
    return input_ended_ || handler_->has_news() ||
           (raw > 0 ? input_.has_bytes(std::min(raw, kRawPieceBytes)) : input_.has_line(line_limit()));
}

// A line, or a piece of raw bytes; empty when there is none, and at the end of the conversation.
std::string_view ServedConnection::take_next(std::size_t raw, LineConnection &face)
{
    const std::string_view next =
        raw > 0 ? input_.take_bytes(std::min(raw, kRawPieceBytes)) : input_.take(line_limit());
    if (!next.empty() || !input_ended_)
        return next;
    if (raw == 0 && !input_.empty())
        return input_.take_all();
    conclude(raw > 0 ? LineHandler::End::bad : LineHandler::End::input, face);
    return {};
}

LineHandler::Next ServedConnection::hand_over(std::string_view next, bool raw, LineConnection &face)
{
    if (raw)
        return handler_->raw(next, face);
    if (next.size() <= kMaxLineBytes || next.back() == '\n')
        return handler_->line(next, face);
    qv_log_print(kLogDebug, "connection closed: a line is too long\n");
    handler_->end(LineHandler::End::bad, face);
    return LineHandler::Next::close;
}

void ServedConnection::conclude(LineHandler::End why, LineConnection &face)
{
    handler_->end(why, face);
    closing_ = true;
}

void ServedConnection::conclude_late(LineConnection &face)
{
    conclude(input_.empty() && handler_->raw_bytes() == 0 ? LineHandler::End::idle : LineHandler::End::bad,
             face);
}

// ---- Output ----

bool ServedConnection::send(ReplyStream &replies)
{
    std::string_view text = replies.text();
    bool good = !replies.broken();
    if (!output_.empty()) {
        output_.append(text);
        text = std::string_view(output_).substr(sent_);
    }
    std::size_t taken = 0;
    while (good && taken < text.size()) {
        const ssize_t n = channel_.write(text.substr(taken));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN)
            break;
        good = n >= 0;
        if (good)
            taken += static_cast<std::size_t>(n);
    }
    if (!good || taken == text.size()) {
        output_ = std::string();
        sent_ = 0;
    } else if (!output_.empty()) {
        sent_ += taken;
    } else {
        output_ = text.substr(taken);
    }
    replies.clear();
    return good;
}

bool ServedConnection::send_all(ReplyStream &replies, std::chrono::milliseconds patience)
{
    const bool good = channel_.write_all(std::string_view(output_).substr(sent_), patience) &&
                      channel_.write_all(replies.text(), patience);
    replies.clear();
    output_ = std::string();
    sent_ = 0;
    return good;
}

bool ServedConnection::has_unsent()
{
    return !output_.empty() || (closing_ && !channel_.finish() && errno == EAGAIN);
}

std::uint32_t ServedConnection::write_events() const
{
    return epoll_events(channel_.write_events());
}

// ---- The end ----

bool ServedConnection::drain()
{
    std::array<char, 16384> waste;
    while (!input_ended_ && drained_ < kDrainBytes) { // as it comes from the socket: of TLS nothing is wanted
        const ssize_t n = ::recv(fd(), waste.data(), waste.size(), MSG_DONTWAIT);
        // A client that said nothing more hears the end from the close. One whose handshake failed may think
        // that it is done, and send its request, and is to read why.
        if (n < 0 && errno == EAGAIN)
            return drained_ == 0 && is_greeted();
        if (n <= 0)
            return true;
        drained_ += static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace qvcd

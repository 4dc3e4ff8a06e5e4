#include "qvclient/event_stream.h"

#include <array>
#include <cerrno>

#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kLongestEvent = std::size_t{1} << 20;
constexpr std::chrono::hours kForEver{24};

} // namespace

EventStream::EventStream(const Endpoint &endpoint, std::chrono::milliseconds connect_timeout)
    : channel_(connect_local(endpoint.socket_path("notify"), connect_timeout))
{
}

std::optional<std::string> EventStream::next(std::chrono::milliseconds timeout)
{
    const Deadline deadline = deadline_in(timeout.count() < 0 ? kForEver : timeout);
    for (;;) {
        if (auto line = take_line())
            return line;
        const bool came = has_come(channel_, channel_.read_events(), deadline);
        if (came)
            receive();
        else if (timeout.count() >= 0)
            return std::nullopt;
        else
            return next(timeout);
    }
}

std::optional<std::string> EventStream::take_line()
{
    const std::size_t end = pending_.find('\n', looked_at_);
    if (end == std::string::npos) {
        looked_at_ = pending_.size();
        return std::nullopt;
    }
    std::string line = pending_.substr(0, end);
    pending_.erase(0, end + 1);
    looked_at_ = 0;
    return line;
}

void EventStream::receive()
{
    std::array<char, 65536> buffer;
    const ssize_t got = channel_.read(buffer.data(), buffer.size());
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (got <= 0 || pending_.size() > kLongestEvent)
        throw WireError("the daemon ended the stream of events");
    pending_.append(buffer.data(), static_cast<std::size_t>(got));
}

} // namespace qvcd::client

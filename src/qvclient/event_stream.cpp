#include "qvclient/event_stream.h"

#include <array>
#include <cerrno>

#include "qvclient/connect.h"
#include "qvclient/escape.h"
#include "qvclient/exchange.h"

namespace qvcd::client {

namespace {

constexpr std::size_t kLongestEvent = std::size_t{1} << 20;
constexpr std::chrono::hours kForEver{24};
constexpr char kLost[] = "##Events were lost";

} // namespace

EventStream::EventStream(const Endpoint &endpoint, const Caller &caller,
                         const std::vector<std::string> &filter, std::chrono::milliseconds connect_timeout)
    : channel_(connect_to(endpoint, connect_timeout))
{
    std::vector<std::string> words = {"events"};
    words.insert(words.end(), filter.begin(), filter.end());
    // Without an end: the request is to last.
    if (!channel_.write_all(greeting(caller) + wire_line(words) + "\n", connect_timeout))
        throw WireError("cannot send: " + channel_.problem());
    std::optional<std::string> first = next(connect_timeout);
    if (!first)
        throw WireError("the daemon does not tell of events within the time limit");
    start_ = std::move(*first);
}

// Whatever is no event ends the stream.
std::string EventStream::event_in(std::string line) const
{
    if (line.starts_with('{'))
        return line;
    if (line.starts_with(kLost))
        throw WireError("the daemon dropped us, for we did not read");
    if (line.starts_with("##") && line.ends_with('#'))
        throw EventsRefused("the daemon ended the stream of events: " + line.substr(2, line.size() - 3));
    if (line == "@")
        throw EventsRefused("the daemon does not know the session");
    throw WireError("what came is no event");
}

std::optional<std::string> EventStream::next(std::chrono::milliseconds timeout)
{
    const Deadline deadline = deadline_in(timeout.count() < 0 ? kForEver : timeout);
    for (;;) {
        if (auto line = take_line())
            return event_in(std::move(*line));
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

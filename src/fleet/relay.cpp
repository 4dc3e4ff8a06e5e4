#include "fleet/relay.h"

#include "platform/log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>
#include <vector>

namespace qvcd {

Relay::Relay(std::shared_ptr<MqttClient> broker, Open open)
    : broker_(std::move(broker)), open_(std::move(open)), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wake_)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

void Relay::take(MqttRequest message)
{
    if (!is_reply_topic(broker_->config(), message.response_topic)) {
        const std::lock_guard lock(mutex_);
        if (strays_.over())
            qv_log_print(kLogWarning, "mqtt: a request is dropped: its reply would go where none may\n");
        return;
    }
    const std::string topic = message.response_topic;
    const std::string correlation = message.correlation;
    Relayed request;
    const char *error = take_request(std::move(message), request);
    if (!error)
        error = queue(std::move(request));
    if (error)
        send(refusal_of(topic, correlation, error));
    else
        ::eventfd_write(wake_.get(), 1);
}

// Null: it waits, or it was known already.
const char *Relay::queue(Relayed &&request)
{
    const std::lock_guard lock(mutex_);
    if (stopping_ || seen_.holds(request.caller, request.correlation))
        return nullptr;
    const auto of_caller = std::ranges::count(waiting_, request.caller, &Relayed::caller);
    if (waiting_.size() >= kMostWaiting || static_cast<std::size_t>(of_caller) >= kMostOfCaller ||
        waiting_bytes_ + request.text.size() > kMostWaitingBytes)
        return "##Too many requests wait#";
    seen_.note(request.caller, request.correlation);
    waiting_bytes_ += request.text.size();
    waiting_.push_back(std::move(request));
    return nullptr;
}

void Relay::stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    ::eventfd_write(wake_.get(), 1);
}

void Relay::run()
{
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (stopping_)
                return conversations_.clear();
        }
        begin_next();
        wait();
    }
}

// The one that waits longest, of callers of whom none runs.
std::optional<Relayed> Relay::next()
{
    const auto runs = [this](const Relayed &request) {
        return std::ranges::any_of(conversations_, [&](const Conversation &other) {
            return other.request.caller == request.caller;
        });
    };
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find_if_not(waiting_, runs);
    if (found == waiting_.end())
        return std::nullopt;
    Relayed request = std::move(*found);
    waiting_.erase(found);
    waiting_bytes_ -= request.text.size();
    return request;
}

void Relay::begin_next()
{
    while (conversations_.size() < kAtOnce) {
        std::optional<Relayed> request = next();
        if (!request)
            return;
        Fd socket = open_(request->peer);
        request->peer.login.reset(); // the password is the connection's now
        if (socket)
            conversations_.push_back({std::move(*request), std::move(socket)});
        else
            send(refusal_of(request->caller, request->correlation, "##No connection is free#"));
    }
}

void Relay::wait()
{
    std::vector<pollfd> waits{{wake_.get(), POLLIN, 0}};
    for (const Conversation &c : conversations_)
        waits.push_back({c.socket.get(),
                         static_cast<short>(c.sent < c.request.text.size() ? POLLIN | POLLOUT : POLLIN), 0});
    if (::poll(waits.data(), waits.size(), -1) <= 0)
        return;
    eventfd_t count = 0;
    ::eventfd_read(wake_.get(), &count);
    auto next = waits.begin() + 1;
    std::erase_if(conversations_, [&](Conversation &c) {
        const short events = (next++)->revents;
        if (events == 0 || talk(c, events))
            return false;
        answer(c);
        return true;
    });
}

// False when it is over.
bool Relay::talk(Conversation &c, short events)
{
    const std::string &text = c.request.text;
    if (events & POLLOUT) {
        const ssize_t n = ::send(c.socket.get(), text.data() + c.sent, text.size() - c.sent, MSG_NOSIGNAL);
        // Who does not read the rest has said all that he will: what he said is read below.
        c.sent = n >= 0 ? c.sent + static_cast<std::size_t>(n) : errno == EAGAIN ? c.sent : text.size();
        if (c.sent == text.size())
            ::shutdown(c.socket.get(), SHUT_WR);
    }
    if ((events & ~POLLOUT) == 0)
        return true;
    std::array<char, 65536> buffer;
    const ssize_t n = ::recv(c.socket.get(), buffer.data(), buffer.size(), 0);
    if (n > 0)
        c.reply.append(buffer.data(), static_cast<std::size_t>(n));
    return c.reply.size() <= kMostReplyBytes && (n > 0 || (n < 0 && (errno == EAGAIN || errno == EINTR)));
}

void Relay::answer(const Conversation &c)
{
    if (c.reply.size() > kMostReplyBytes)
        return send(reply_part(c.request, "##The reply is too long#\n@\n1\n", 1, 1));
    if (c.reply.empty()) // the server closed it, and does not say when
        return send(reply_part(c.request, "##The connection was lost#\n@\n1\n", 1, 1));
    const std::size_t parts = (c.reply.size() + kPartBytes - 1) / kPartBytes;
    for (std::size_t part = 1; part <= parts; ++part)
        send(reply_part(c.request, std::string_view(c.reply).substr((part - 1) * kPartBytes, kPartBytes),
                        part, parts));
}

void Relay::send(MqttReply reply)
{
    if (broker_->reply(reply))
        return;
    const std::lock_guard lock(mutex_);
    if (losses_.over())
        qv_log_print(kLogWarning, "mqtt: replies are lost: the broker does not take them\n");
}

} // namespace qvcd

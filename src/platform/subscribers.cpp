#include "platform/subscribers.h"

#include "platform/counters.h"
#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <sys/socket.h>

namespace qvcd {

namespace {

pid_t process_of(int socket)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size);
    return credentials.pid;
}

} // namespace

void Subscribers::add(Fd socket)
{
    if (all_.size() >= kMost) {
        const std::size_t place = who_makes_room();
        if (crowd_.over())
            qv_log_print(kLogWarning, "notify: there are %zu subscribers, one of process %d makes room\n",
                         all_.size(), static_cast<int>(all_[place].process));
        all_.erase(all_.begin() + static_cast<std::ptrdiff_t>(place));
    }
    const pid_t process = process_of(socket.get());
    all_.push_back({std::move(socket), process, {}});
}

std::size_t Subscribers::who_makes_room() const
{
    const auto last = std::ranges::max_element(all_, {}, [](const Subscriber &s) { return s.queue.size(); });
    if (!last->queue.empty())
        return static_cast<std::size_t>(last - all_.begin());
    std::map<pid_t, std::size_t> counts;
    for (const Subscriber &subscriber : all_)
        ++counts[subscriber.process];
    const auto oldest =
        std::ranges::max_element(all_, {}, [&](const Subscriber &s) { return counts[s.process]; });
    return static_cast<std::size_t>(oldest - all_.begin());
}

void Subscribers::queue(std::string_view line)
{
    for (Subscriber &subscriber : all_) {
        if (subscriber.queue.size() + line.size() > kQueueBytes)
            send_queue(subscriber); // it may have read meanwhile
        if (!subscriber.gone && subscriber.queue.size() + line.size() > kQueueBytes) {
            if (slow_.over())
                qv_log_print(kLogWarning, "notify: a subscriber is dropped, it does not read\n");
            subscriber.gone = true;
            ++counters.lost_listeners;
        }
        if (!subscriber.gone)
            subscriber.queue += line;
    }
}

void Subscribers::send()
{
    for (Subscriber &subscriber : all_)
        send_queue(subscriber);
    std::erase_if(all_, [](const Subscriber &s) { return s.gone; });
}

void Subscribers::send_queue(Subscriber &subscriber)
{
    std::size_t sent = 0;
    while (!subscriber.gone && sent < subscriber.queue.size()) {
        const ssize_t n = ::send(subscriber.socket.get(), subscriber.queue.data() + sent,
                                 subscriber.queue.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0)
            sent += static_cast<std::size_t>(n);
        else if (errno == EAGAIN)
            break;
        else if (errno != EINTR)
            subscriber.gone = true;
    }
    if (sent == subscriber.queue.size())
        subscriber.queue = std::string();
    else
        subscriber.queue.erase(0, sent);
}

void Subscribers::append_waits(std::vector<pollfd> &waits) const
{
    for (const Subscriber &s : all_)
        waits.push_back({s.socket.get(),
                         static_cast<short>((s.silent ? 0 : POLLIN) | (s.queue.empty() ? 0 : POLLOUT)), 0});
}

// They have nothing to say; reading shows that one has closed.
void Subscribers::notice(const pollfd *waits)
{
    for (Subscriber &subscriber : all_) {
        const short events = (waits++)->revents;
        if (events & POLLIN) {
            char waste[1024];
            if (::recv(subscriber.socket.get(), waste, sizeof waste, MSG_DONTWAIT) == 0)
                subscriber.silent = true;
        }
        if (events & (POLLHUP | POLLERR))
            subscriber.gone = true;
    }
}

} // namespace qvcd

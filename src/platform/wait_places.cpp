#include "platform/wait_places.h"

#include <algorithm>
#include <sys/socket.h>

namespace qvcd {

void WaitPlaces::take(std::size_t places, const std::string &source)
{
    const std::size_t half = source.empty() ? places : (places + 1) / 2;
    std::unique_lock lock(mutex_);
    one_is_free_.wait(lock, [&] {
        const auto own = sources_.find(source);
        return taken_ < places && (own == sources_.end() || own->second < half);
    });
    ++taken_;
    ++sources_[source];
}

void WaitPlaces::leave(const std::string &source)
{
    const std::lock_guard lock(mutex_);
    --taken_;
    if (const auto own = sources_.find(source); --own->second == 0)
        sources_.erase(own);
    one_is_free_.notify_all(); // not all wait for the same number
}

void WaitPlaces::go_out(int socket)
{
    const std::lock_guard lock(mutex_);
    outside_.push_back(socket);
    if (cut_)
        ::shutdown(socket, SHUT_RDWR);
}

void WaitPlaces::come_back(int socket)
{
    const std::lock_guard lock(mutex_);
    const auto here = std::ranges::find(outside_, socket);
    if (here != outside_.end())
        outside_.erase(here);
}

void WaitPlaces::cut()
{
    const std::lock_guard lock(mutex_);
    cut_ = true;
    for (const int socket : outside_)
        ::shutdown(socket, SHUT_RDWR);
}

} // namespace qvcd

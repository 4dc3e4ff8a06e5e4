#include "platform/wait_places.h"

#include <algorithm>
#include <sys/socket.h>

namespace qvcd {

void WaitPlaces::take(std::size_t places)
{
    std::unique_lock lock(mutex_);
    one_is_free_.wait(lock, [&] { return taken_ < places; });
    ++taken_;
}

void WaitPlaces::leave()
{
    const std::lock_guard lock(mutex_);
    --taken_;
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

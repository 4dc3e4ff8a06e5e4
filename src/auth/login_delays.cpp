#include "auth/login_delays.h"

#include <algorithm>

namespace qvcd {

using std::chrono::seconds;

seconds LoginDelays::delay(unsigned count) const
{
    if (count <= kFreeFailures)
        return seconds{0};
    const unsigned doublings = std::min(count - kFreeFailures - 1, 6U); // 2^6 s is over a minute
    return std::min<seconds>(seconds{1U << doublings}, kLongest);
}

seconds LoginDelays::left(const std::string &who, Time now)
{
    const std::lock_guard lock(mutex_);
    const auto found = by_name_.find(who);
    if (found == by_name_.end())
        return seconds{0};
    const Failures &failures = *found->second;
    return std::max(seconds{0}, std::chrono::ceil<seconds>(failures.last + delay(failures.count) - now));
}

seconds LoginDelays::failed(const std::string &who, Time now)
{
    const std::lock_guard lock(mutex_);
    auto found = by_name_.find(who);
    if (found == by_name_.end()) {
        if (by_age_.size() >= kMost) {
            by_name_.erase(by_age_.front().who);
            by_age_.pop_front();
        }
        found = by_name_.emplace(who, by_age_.insert(by_age_.end(), {who, 0, now})).first;
    }
    Failures &failures = *found->second;
    if (now - failures.last > kMemory)
        failures.count = 0;
    failures.count = std::min(failures.count + 1, 1000U);
    failures.last = now;
    by_age_.splice(by_age_.end(), by_age_, found->second);
    return delay(failures.count);
}

void LoginDelays::succeeded(const std::string &who)
{
    const std::lock_guard lock(mutex_);
    const auto found = by_name_.find(who);
    if (found == by_name_.end())
        return;
    by_age_.erase(found->second);
    by_name_.erase(found);
}

std::size_t LoginDelays::size() const
{
    const std::lock_guard lock(mutex_);
    return by_age_.size();
}

} // namespace qvcd

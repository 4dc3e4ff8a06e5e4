#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <map>
#include <mutex>
#include <string>

namespace qvcd {

/// How long somebody who gave wrong passwords has to wait before the next one is looked at. Nobody sleeps for
/// it. Safe for several threads.
class LoginDelays {
  public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr unsigned kFreeFailures =
        4; ///< the next one starts a delay of 1 s, each further doubles it
    static constexpr std::chrono::seconds kLongest{60};
    static constexpr std::chrono::hours kMemory{1}; ///< failures are forgotten so long after the last one
    static constexpr std::size_t kMost = 4096; ///< of all who failed, the one who did so longest ago goes

    /// Seconds to wait, rounded up; 0: go on.
    std::chrono::seconds left(const std::string &who, Time now);

    /// A wrong password: the delay that begins with it, or 0.
    std::chrono::seconds failed(const std::string &who, Time now);

    /// A right one: the failures before it do not count.
    void succeeded(const std::string &who);

    std::size_t size() const;

  private:
    struct Failures {
        std::string who;
        unsigned count = 0;
        Time last;
    };
    std::chrono::seconds delay(unsigned count) const;

    mutable std::mutex mutex_;
    std::list<Failures> by_age_; // the oldest first
    std::map<std::string, std::list<Failures>::iterator, std::less<>> by_name_;
};

} // namespace qvcd

#pragma once

#include <chrono>
#include <time.h>

namespace qvcd {

/// Time since the boot. The kernel keeps it at hand: no system call, exact to a tick of some milliseconds.
inline std::chrono::milliseconds coarse_now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::seconds(time.tv_sec) +
                                                                 std::chrono::nanoseconds(time.tv_nsec));
}

/// For a log line about what may happen again and again.
class LogPause {
  public:
    /// True when nothing was logged for a minute, and is now. Used by one thread at a time.
    bool over()
    {
        const std::chrono::milliseconds now = coarse_now();
        if (now < next_)
            return false;
        next_ = now + std::chrono::minutes(1);
        return true;
    }

  private:
    std::chrono::milliseconds next_{0};
};

} // namespace qvcd

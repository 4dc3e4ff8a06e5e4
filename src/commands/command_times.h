#pragma once

#include "commands/command.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <span>

namespace qvcd {

/// Up to which times commands are counted apart, in milliseconds. None is near a tick of the clock.
inline constexpr std::array<std::uint64_t, 8> kTimeBounds = {20, 50, 100, 500, 1000, 5000, 20'000, 60'000};

/// How often a command ran, and how long these took.
struct CommandTimes {
    std::array<std::uint64_t, kTimeBounds.size() + 1> counts{}; ///< up to each bound, above the one before it
    std::uint64_t nanoseconds = 0; ///< of all; of a clock that is cheap and coarse: right on average

    void add(std::uint64_t took)
    {
        std::size_t at = 0;
        while (at < kTimeBounds.size() && took > kTimeBounds[at] * 1'000'000U)
            ++at;
        ++counts[at];
        nanoseconds += took;
    }
};

/// Of each row of the table of commands, in its order. Used under the command lock.
std::span<CommandTimes> command_times();

/// Times one command from its construction to its end.
class CommandTimer {
  public:
    explicit CommandTimer(CommandTimes &times) : times_(times), begin_(now()) {}
    ~CommandTimer() { times_.add(now() - begin_); }
    CommandTimer(const CommandTimer &) = delete;
    CommandTimer &operator=(const CommandTimer &) = delete;

  private:
    static std::uint64_t now()
    {
        timespec time{};
        ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
        return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U +
               static_cast<std::uint64_t>(time.tv_nsec);
    }

    CommandTimes &times_;
    std::uint64_t begin_;
};

} // namespace qvcd

#pragma once

#include "commands/command.h"

#include <cstdint>
#include <ctime>
#include <span>

namespace qvcd {

/// How often a command ran, and how long all of these took together.
struct CommandTimes {
    std::uint64_t count = 0;
    std::uint64_t nanoseconds = 0; ///< of a clock that is cheap and coarse: right on average
};

/// Of each row of the table of commands, in its order. Used under the command lock.
std::span<CommandTimes> command_times();

/// Times one command from its construction to its end.
class CommandTimer {
  public:
    explicit CommandTimer(CommandTimes &times) : times_(times), begin_(now()) {}
    ~CommandTimer()
    {
        ++times_.count;
        times_.nanoseconds += now() - begin_;
    }
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

#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace qvcd {

/// How many lines each source may still log, of each priority apart: nobody hides his failed logins behind
/// commands that are wrong. Used by one thread at a time.
class LogBudget {
  public:
    using Time = std::chrono::milliseconds; ///< of a clock that never goes back

    static constexpr unsigned long kLines = 100; ///< of one source and priority in kWindow
    static constexpr Time kWindow{10'000};
    static constexpr std::size_t kMost = 2048; ///< sources and their priorities; more count as one, "others"

    enum class Verdict {
        log,
        leave_out_from_now, ///< the first that is left out: to be told
        leave_out,
    };
    Verdict take(const std::string &source, int priority, Time now);

    /// When left_out() has something to do; max(): never.
    Time due() const { return due_; }

    struct LeftOut {
        std::string source;
        int priority = 0;
        unsigned long lines = 0;
    };
    /// Forgets the sources whose time is over and returns those of which lines were left out.
    std::vector<LeftOut> left_out(Time now);

  private:
    struct Window {
        Time end{0};
        unsigned long lines = 0;
    };
    std::map<std::pair<std::string, int>, Window> windows_;
    Time due_ = Time::max();
};

} // namespace qvcd

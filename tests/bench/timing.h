#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>
#include <vector>

namespace qvcd::bench {

inline double seconds_of(const std::function<void()> &work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Seconds of one call of `work`, called again and again for `slice` seconds.
inline double seconds_of_one(double slice, const std::function<void()> &work)
{
    const auto start = std::chrono::steady_clock::now();
    std::size_t calls = 0;
    for (;;) {
        work();
        ++calls;
        const double passed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (passed >= slice)
            return passed / static_cast<double>(calls);
    }
}

/// The middle one of a handful of timings.
inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct Pair {
    double ours = 0;
    double bare = 0;
};

/// Times two works in turn, so that both meet the same disturbances, and takes the least disturbed round of
/// each.
inline Pair best_of(int rounds, double slice, const std::function<void()> &ours,
                    const std::function<void()> &bare)
{
    Pair best{1e9, 1e9};
    for (int i = 0; i < rounds; ++i) {
        best.ours = std::min(best.ours, seconds_of_one(slice, ours));
        best.bare = std::min(best.bare, seconds_of_one(slice, bare));
    }
    return best;
}

} // namespace qvcd::bench

#pragma once

#include <chrono>
#include <thread>

namespace qvcd {

/// Waits for another thread's work to show. False after half a minute: something hangs.
template <typename Condition>
bool comes_true(Condition &&condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace qvcd

#pragma once

#include <atomic>
#include <cstdint>

namespace qvcd {

/// What has happened since the start, for who watches over the daemon.
struct Counters {
    std::atomic<std::uint64_t> saves = 0;          ///< values that reached their files
    std::atomic<std::uint64_t> failed_saves = 0;   ///< values that did not
    std::atomic<std::uint64_t> refused_logins = 0; ///< whatever the reason
    std::atomic<std::uint64_t> lost_listeners = 0; ///< who did not read events, and got an end instead
};

inline Counters counters;

} // namespace qvcd

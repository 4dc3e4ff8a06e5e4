#pragma once

#include "platform/coarse_clock.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace qvcd {

/// The threads of a server. One leads: it does the work of all; when the work makes it wait, it hands the
/// lead over and another goes on. So the work as it mostly is needs no wake-up.
class Crew {
  public:
    /// Leads. Returns true to end the whole crew, false after hand_over(). Called again and again, always on
    /// the same thread.
    using Lead = std::function<bool()>;

    /// `recruit` makes what a new thread leads with.
    explicit Crew(std::function<Lead()> recruit) : recruit_(std::move(recruit)) {}

    /// Starts a leader and one more. Threads that are left behind keep `owner` alive. False, after a log
    /// line, when the kernel gives no threads.
    bool start(const std::shared_ptr<void> &owner);

    /// For the leader: true when hand_over() finds somebody, who may have to be started for it.
    bool has_follower();

    /// For the leader, which leads no more. Without a follower, the next who is idle again leads.
    void hand_over();

    /// Waits up to `patience` for all threads; the leader must be told to return true. The number of those
    /// that are left behind.
    std::size_t stop(std::chrono::milliseconds patience);

  private:
    using Threads = std::list<std::thread>;
    bool spawn_locked();
    void work(Threads::iterator self, const Lead &lead);

    const std::function<Lead()> recruit_;
    std::weak_ptr<void> owner_;
    std::mutex mutex_; // guards what follows
    std::condition_variable lead_is_free_;
    std::condition_variable one_has_ended_;
    Threads threads_;
    std::thread last_ended_; // to be joined by the next that ends
    std::size_t idle_ = 0;
    bool led_ = false;
    bool stopping_ = false;
    LogPause trouble_;
};

} // namespace qvcd

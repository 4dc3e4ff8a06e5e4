#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace qvcd::web {

/// A few threads that do what waits for the daemon. Jobs must throw nothing.
class Pool {
  public:
    using Job = std::function<void()>;

    Pool(std::size_t threads, std::size_t most_waiting);
    ~Pool(); ///< waits for what runs

    /// What waits is dropped, what runs is waited for. False when some of it has not ended by then.
    bool stop(std::chrono::steady_clock::time_point deadline);

    Pool(const Pool &) = delete;
    Pool &operator=(const Pool &) = delete;

    /// False, and nothing is done: too many wait already.
    bool add(Job job);

  private:
    void work();

    const std::size_t most_waiting_;
    std::mutex mutex_;
    std::condition_variable came_;
    std::condition_variable ended_;
    std::size_t running_ = 0;
    std::deque<Job> waiting_;
    bool ends_ = false;
    std::vector<std::thread> threads_;
};

} // namespace qvcd::web

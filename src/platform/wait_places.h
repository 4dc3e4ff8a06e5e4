#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

namespace qvcd {

/// The commands that wait on the outside world: so many at once, the others queue. Safe for several threads.
class WaitPlaces {
  public:
    /// Returns when fewer than `places` are taken, and takes one.
    void take(std::size_t places);
    void leave();

    /// Between these a command is outside, and its client's socket is known to cut().
    void go_out(int socket);
    void come_back(int socket);

    /// The server stops: clients of commands that are outside are told nothing more, now and later.
    void cut();

  private:
    std::mutex mutex_;
    std::condition_variable one_is_free_;
    std::size_t taken_ = 0;
    std::vector<int> outside_;
    bool cut_ = false;
};

} // namespace qvcd

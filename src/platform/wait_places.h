#pragma once

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace qvcd {

/// The commands that wait on the outside world: so many at once, the others queue. Safe for several threads.
class WaitPlaces {
  public:
    /// Returns when fewer than `places` are taken, and of these fewer than half by the source, and takes one.
    /// An empty source may have all.
    void take(std::size_t places, const std::string &source);
    void leave(const std::string &source);

    /// Between these a command is outside, and its client's socket is known to cut().
    void go_out(int socket);
    void come_back(int socket);

    /// The server stops: clients of commands that are outside are told nothing more, now and later.
    void cut();

  private:
    std::mutex mutex_;
    std::condition_variable one_is_free_;
    std::size_t taken_ = 0;
    std::map<std::string, std::size_t> sources_; // places that each has
    std::vector<int> outside_;
    bool cut_ = false;
};

} // namespace qvcd

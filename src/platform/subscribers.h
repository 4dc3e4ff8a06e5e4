#pragma once

#include "platform/coarse_clock.h"
#include "platform/fd.h"

#include <cstddef>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qvcd {

/// Those who listen to the notification bus. Nothing here waits for one of them. Used by one thread.
class Subscribers {
  public:
    static constexpr std::size_t kMost = 64;
    static constexpr std::size_t kQueueBytes = std::size_t{1} << 20; ///< that one did not take yet

    bool empty() const { return all_.empty(); }

    /// Takes one in. When there are kMost, one makes room: who lies behind most, else the oldest of the
    /// process that has the most, so that one that forgets to close shuts nobody out.
    void add(Fd socket);

    /// Queues the line for all. Who would have more than kQueueBytes is dropped.
    void queue(std::string_view line);

    /// Sends what is queued and they take, and forgets those that are gone.
    void send();

    /// They have missed something: they come again when they see the end of the stream.
    void drop_all() { all_.clear(); }

    /// What poll(2) is to tell of each, and what it told. Between the two nobody is added or dropped.
    void append_waits(std::vector<pollfd> &waits) const;
    void notice(const pollfd *waits);

  private:
    struct Subscriber {
        Fd socket;
        pid_t process;
        std::string queue;
        bool silent = false; // it has closed its sending side
        bool gone = false;
    };
    std::size_t who_makes_room() const;
    static void send_queue(Subscriber &subscriber);

    std::vector<Subscriber> all_; // the oldest first
    LogPause slow_, crowd_;
};

} // namespace qvcd

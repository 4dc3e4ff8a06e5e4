#pragma once

#include "platform/coarse_clock.h"
#include "platform/connection_table.h"
#include "platform/crew.h"
#include "platform/line_server.h"
#include "platform/listeners.h"
#include "platform/wait_places.h"

#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <sys/epoll.h>
#include <vector>

namespace qvcd {

/// What a LineServer does. Who leads waits for events and serves them; what is marked "the leader's" goes
/// from one leader to the next, through the crew.
class LineLoop : public std::enable_shared_from_this<LineLoop> {
  public:
    LineLoop(MakeHandler make_handler, const ServerLimits &limits);

    void add(Listener listener) { listeners_.add(std::move(listener)); }
    bool start();
    bool stop(std::chrono::milliseconds patience);

    /// One more client, who came in elsewhere. Thread-safe.
    void adopt(Listeners::Arrival arrival);

    /// Those who listen may have news. Thread-safe.
    void tell_of_news();

  private:
    using Member = ConnectionTable::Member;
    class Worker;

    // Threads
    bool lead(Worker &worker);
    void dispatch(Worker &worker, const epoll_event &event);
    void serve_ready(Worker &worker);
    void take_returned(Worker &worker);
    void take_adopted(Worker &worker);
    void take_news();
    void wake();

    // Connections come and go
    void accept_all(Worker &worker, Listener &listener);
    Member *admit(Worker &worker, const TlsContext *tls, Listeners::Arrival arrival);
    bool find_place(Worker &worker, const std::string &source);
    bool make_room(Worker &worker);
    void close(Member &member);

    // What they wait for
    void watch(Member &member, std::uint32_t events);
    void settle(Member &member);
    void drain(Member &member);
    void set_timer();
    void end_late_ones(Worker &worker);
    void bound_memory();

    // Serving one
    void readable(Worker &worker, Member &member);
    bool must_queue(const Member &member) const;
    bool greet(Member &member);
    void log_failed_handshake(const Member &member);
    enum class Reason { input, late };
    std::chrono::microseconds slice() const;
    void serve(Worker &worker, Member &member, Reason reason = Reason::input);
    void answer(Worker &worker, Member &member);

    const MakeHandler make_handler_;
    const ServerLimits limits_;
    Fd epoll_;
    Fd wake_;  // eventfd(2)
    Fd timer_; // timerfd_create(2): tells when the next connection may be late
    std::atomic<bool> stopping_{false};
    std::atomic<bool> has_news_{false};
    WaitPlaces places_;

    std::mutex returned_mutex_;      // guards what follows
    std::vector<Member *> returned_; // their commands waited and have ended
    std::deque<Listeners::Arrival> adopted_;

    // The leader's.
    Listeners listeners_;
    ConnectionTable table_;
    std::array<epoll_event, 1024> events_{}; // all that is ready: who is new waits for no second look
    int event_count_ = 0;
    int next_event_ = 0;
    std::chrono::milliseconds timer_set_for_ = std::chrono::milliseconds::max();
    std::size_t most_held_ = 0; // bytes, since memory was given back last
    bool had_much_ = false;     // and not all of it was given back
    LogPause crowd_, crowded_source_, memory_;
    std::set<std::string, std::less<>> failed_handshakes_; // sources of which one was logged

    Crew crew_; // last: its threads use everything above
};

} // namespace qvcd

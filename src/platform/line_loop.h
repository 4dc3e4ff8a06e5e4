#pragma once

#include "platform/coarse_clock.h"
#include "platform/crew.h"
#include "platform/served_connection.h"
#include "platform/wait_places.h"

#include <array>
#include <atomic>
#include <chrono>
#include <list>
#include <map>
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
    ~LineLoop();
    LineLoop(const LineLoop &) = delete;
    LineLoop &operator=(const LineLoop &) = delete;

    void add(UnixListener listener, bool local, std::shared_ptr<const TlsContext> tls = nullptr);
    bool start();
    bool stop(std::chrono::milliseconds patience);

  private:
    struct Member;
    class Worker;

    // Every connection is in one of these, and ends when it is there for `patience`. Who waited longest is
    // the first.
    struct Stage {
        std::chrono::milliseconds patience{0}; // 0: as long as it takes
        std::list<Member> members;
    };

    struct Listener {
        UnixListener socket;
        bool local;
        std::shared_ptr<const TlsContext> tls; // none: in clear
    };

    // Threads
    bool lead(Worker &worker);
    void dispatch(Worker &worker, const epoll_event &event);
    void serve_ready(Worker &worker);
    void take_returned(Worker &worker);
    void wake();

    // Connections come and go
    void accept_all(Worker &worker, Listener &listener);
    Member *admit(Worker &worker, Listener &listener, Fd socket, const sockaddr_storage &address);
    bool find_place(Worker &worker, const std::string &source, bool is_privileged);
    bool make_room(Worker &worker);
    void pause_accepting(Worker &worker, int error);
    void accept_again();
    void watch_listeners(std::uint32_t events);
    void close(Member &member);

    // What they wait for
    void move(Member &member, Stage &stage);
    void watch(Member &member, std::uint32_t events);
    void settle(Member &member);
    void drain(Member &member);
    int milliseconds_to_wait() const;
    void end_late_ones(Worker &worker);
    void count_held(Member &member);
    bool close_largest();

    // Serving one
    void readable(Worker &worker, Member &member);
    bool greet(Member &member);
    void log_failed_handshake(const Member &member);
    enum class Reason { input, late };
    void serve(Worker &worker, Member &member, Reason reason = Reason::input);
    void answer(Worker &worker, Member &member);

    const MakeHandler make_handler_;
    const ServerLimits limits_;
    std::vector<std::unique_ptr<Listener>> listeners_;
    Fd epoll_;
    Fd wake_; // eventfd(2)
    std::atomic<bool> stopping_{false};
    WaitPlaces places_;

    std::mutex returned_mutex_;      // guards what follows
    std::vector<Member *> returned_; // their commands waited and have ended

    // The leader's.
    Stage first_, idle_, sending_, draining_;
    Stage ready_; // with lines that wait their turn
    Stage busy_;  // being served, on whatever thread
    const std::array<Stage *, 4> patient_ = {&first_, &idle_, &sending_, &draining_};
    std::size_t size_ = 0; // of all stages
    std::size_t held_ = 0; // bytes of all members, as they were counted last
    std::map<std::string, std::size_t, std::less<>> sources_; // members of each, but for privileged ones
    std::array<epoll_event, 64> events_{};
    int event_count_ = 0;
    int next_event_ = 0;
    std::chrono::milliseconds accept_again_{0}; // 0: listeners are watched
    LogPause accept_trouble_, crowd_, crowded_source_, memory_;
    std::set<std::string, std::less<>> failed_handshakes_; // sources of which one was logged

    Crew crew_; // last: its threads use everything above
};

} // namespace qvcd

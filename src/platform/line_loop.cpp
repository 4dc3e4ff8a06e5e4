#include "platform/line_loop.h"

#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <malloc.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace qvcd {

namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::milliseconds;

constexpr std::size_t kReadBytes = std::size_t{64} << 10;
constexpr auto kTurnsTime = 1ms; // for those with lines that wait, and for those that come
constexpr auto kRoundTime = 5ms; // for one slice of everybody's lines
constexpr std::chrono::microseconds kLeastSlice = 25us;
constexpr std::chrono::microseconds kMostSlice = 250us;
constexpr Milliseconds kCoarseTick = 10ms; // coarse_now() is not further behind
constexpr int kCrowd = 32;                 // events at once, with which nobody is read for long
constexpr std::size_t kShortBytes = 1024;  // of lines that are answered at once
constexpr std::size_t kMemberBytes = 1024; // of a connection that says nothing, roundly
constexpr std::size_t kMuchBytes = std::size_t{2} << 20;
constexpr std::size_t kLittleBytes = std::size_t{64} << 10;
constexpr std::size_t kLoggedSources = 256; // whose failed handshakes are not logged again

} // namespace

// A thread of the loop, and the connection that it serves.
class LineLoop::Worker final : public LineConnection {
  public:
    explicit Worker(LineLoop &loop) : loop_(loop), buffer_(new char[kReadBytes]) {}

    const Peer &peer() const override { return member_->peer(); }
    std::FILE *out() override { return replies_.file(); }
    void begin_wait() noexcept override;
    void end_wait() noexcept override { loop_.places_.come_back(member_->fd()); }
    bool can_wait() noexcept override { return !leads_ || loop_.crew_.has_follower(); }
    std::size_t unsent() noexcept override { return replies_.size() + member_->unsent(); }
    std::function<void()> waker() override
    {
        return [weak = loop_.weak_from_this()] {
            if (const std::shared_ptr<LineLoop> loop = weak.lock())
                loop->tell_of_news();
        };
    }

  private:
    friend class LineLoop;
    LineLoop &loop_;
    std::unique_ptr<char[]> buffer_; // uninitialised: pages that are not used cost nothing
    ReplyStream replies_;
    Member *member_ = nullptr; // the one whose handler runs
    bool leads_ = false;
    bool must_not_wait_ = false;
    std::string place_of_; // for whom it has taken one of the places for waits
};

// ---- Threads ----

LineLoop::LineLoop(MakeHandler make_handler, const ServerLimits &limits)
    : make_handler_(std::move(make_handler)), limits_(limits), table_(limits),
      crew_([this] { return [this, worker = std::make_shared<Worker>(*this)] { return lead(*worker); }; })
{
}

bool LineLoop::start()
{
    epoll_.reset(::epoll_create1(EPOLL_CLOEXEC));
    wake_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    timer_.reset(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    const auto watch = [this](const Fd &fd, void *tag) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = tag;
        return fd && ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd.get(), &event) == 0;
    };
    const bool good =
        epoll_ && watch(wake_, nullptr) && watch(timer_, &timer_) && listeners_.watch(epoll_.get());
    if (!good) {
        qv_report_failure(std::string("cannot serve connections: ") + std::strerror(errno));
        return false;
    }
    return crew_.start(shared_from_this());
}

bool LineLoop::stop(Milliseconds patience)
{
    listeners_.remove_names();
    stopping_ = true;
    places_.cut();
    wake();
    if (const std::size_t left = crew_.stop(patience); left > 0) {
        qv_log_print(kLogWarning, "server threads did not end in time: %zu\n", left);
        return false;
    }
    table_.clear();
    listeners_.clear();
    return true;
}

void LineLoop::wake()
{
    ::eventfd_write(wake_.get(), 1);
}

bool LineLoop::lead(Worker &worker)
{
    worker.leads_ = true;
    for (;;) {
        while (worker.leads_ && next_event_ < event_count_)
            dispatch(worker, events_[static_cast<std::size_t>(next_event_++)]);
        if (worker.leads_)
            serve_ready(worker);
        if (worker.leads_)
            end_late_ones(worker);
        if (!worker.leads_) // what is the leader's may be another thread's now
            return false;
        if (stopping_)
            return true;
        bound_memory();
        next_event_ = 0;
        const bool waits = table_.ready.members.empty();
        if (waits)
            set_timer();
        event_count_ = std::max(
            0, ::epoll_wait(epoll_.get(), events_.data(), static_cast<int>(events_.size()), waits ? -1 : 0));
    }
}

void LineLoop::dispatch(Worker &worker, const epoll_event &event)
{
    if (event.data.ptr == nullptr) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
        take_news();
        take_returned(worker);
        return take_adopted(worker);
    }
    if (event.data.ptr == &timer_) {
        std::uint64_t count = 0;
        if (::read(timer_.get(), &count, sizeof count) > 0)
            timer_set_for_ = Milliseconds::max(); // who is late by now ends behind the events
        return;
    }
    if (Listener *const listener = Listeners::of(event))
        return accept_all(worker, *listener);
    Member &member = *static_cast<Member *>(event.data.ptr);
    if (member.stage == &table_.sending)
        answer(worker, member);
    else if (member.stage == &table_.draining)
        drain(member);
    else if (member.stage !=
             &table_.ready) // nothing more is read before its waiting lines have had their turn
        readable(worker, member);
}

void LineLoop::serve_ready(Worker &worker)
{
    if (table_.ready.members.empty())
        return;
    const Deadline until = std::chrono::steady_clock::now() + kTurnsTime;
    for (std::size_t turns = table_.ready.members.size(); worker.leads_ && turns > 0; --turns) {
        Member &member = table_.ready.members.front();
        table_.move(member, table_.busy); // not late: we are
        serve(worker, member);
        if (std::chrono::steady_clock::now() >= until)
            break;
    }
}

void LineLoop::tell_of_news()
{
    if (!has_news_.exchange(true))
        wake();
}

// Who is served just now sees his news when he comes back.
void LineLoop::take_news()
{
    if (!has_news_.exchange(false))
        return;
    for (auto next = table_.listening.members.begin(); next != table_.listening.members.end();) {
        Member &member = *next++;
        if (member.has_work())
            table_.move(member, table_.ready);
    }
}

void LineLoop::take_returned(Worker &worker)
{
    std::vector<Member *> returned;
    {
        const std::lock_guard lock(returned_mutex_);
        returned.swap(returned_);
    }
    for (Member *member : returned)
        answer(worker, *member);
}

void LineLoop::adopt(Listeners::Arrival arrival)
{
    {
        const std::lock_guard lock(returned_mutex_);
        adopted_.push_back(std::move(arrival));
    }
    wake();
}

void LineLoop::take_adopted(Worker &worker)
{
    while (worker.leads_) {
        std::optional<Listeners::Arrival> arrival;
        {
            const std::lock_guard lock(returned_mutex_);
            if (adopted_.empty())
                return;
            arrival = std::move(adopted_.front());
            adopted_.pop_front();
        }
        if (Member *const member = admit(worker, nullptr, std::move(*arrival)))
            readable(worker, *member);
    }
    wake(); // the next leader takes the others
}

void LineLoop::Worker::begin_wait() noexcept
{
    Member &member = *member_;
    if (must_not_wait_)
        return;
    const bool first = leads_;
    if (first) {
        member.has_just_read_all(); // soon it will not be true any more
        loop_.watch(member, 0);
        loop_.table_.move(member, loop_.table_.busy);
        leads_ = false;
        loop_.crew_.hand_over();
    }
    loop_.places_.go_out(member.fd());
    // Only this thread touches the connection now, so a client that does not read holds up nobody else.
    if (!member.send_all(replies_, loop_.limits_.send))
        member.give_up();
    if (!first)
        return;
    // A place is kept to the end of the command: a short wait must not queue again behind long ones.
    const bool is_privileged = member.is_privileged();
    place_of_ = is_privileged ? "" : member.source();
    loop_.places_.take(loop_.limits_.waiting + (is_privileged ? loop_.limits_.reserved : 0), place_of_);
}

// ---- Connections come and go ----

void LineLoop::accept_all(Worker &worker, Listener &listener)
{
    // One that comes alone needs no second look: epoll will tell of the next.
    const bool alone = table_.ready.members.empty() && event_count_ == 1;
    const Deadline until = alone ? Deadline() : std::chrono::steady_clock::now() + kTurnsTime;
    do {
        std::optional<Listeners::Arrival> arrival = listeners_.accept(listener);
        if (!arrival) {
            if (listeners_.is_pausing())
                make_room(worker);
            return;
        }
        if (Member *const member = admit(worker, listener.tls.get(), std::move(*arrival)))
            readable(worker, *member); // the request is mostly there already
    } while (worker.leads_ && !alone && std::chrono::steady_clock::now() < until);
}

// Null when there is no place.
LineLoop::Member *LineLoop::admit(Worker &worker, const TlsContext *tls, Listeners::Arrival arrival)
{
    std::unique_ptr<LineHandler> handler = tls ? nullptr : make_handler_(arrival.peer);
    std::string source = handler && handler->is_privileged() ? "" : arrival.peer.source();
    if (!find_place(worker, source))
        return nullptr;
    Channel channel =
        tls ? Channel(std::move(arrival.socket), tls->accept()) : Channel(std::move(arrival.socket));
    return &table_.add(std::move(channel), std::move(arrival.peer), std::move(handler), std::move(source));
}

// Without a source: of an administrator.
bool LineLoop::find_place(Worker &worker, const std::string &source)
{
    if (!source.empty() && table_.of_source(source) >= limits_.per_source) {
        if (crowded_source_.over())
            qv_log_print(kLogWarning, "%s has %zu connections, further ones are closed\n", source.c_str(),
                         table_.of_source(source));
        return false;
    }
    if (table_.size() < limits_.connections || make_room(worker))
        return true;
    if (source.empty() && table_.size() < limits_.connections + limits_.reserved)
        return true;
    if (crowd_.over())
        qv_log_print(kLogWarning, "all %zu connections are busy, further ones are closed\n", table_.size());
    return false;
}

// Who can be missed is told why, and goes. False when all are served.
bool LineLoop::make_room(Worker &worker)
{
    Member *const member = table_.least_missed();
    if (!member)
        return false;
    if (member->is_greeted() && !member->is_closing() && member->unsent() == 0) {
        worker.member_ = member;
        worker.must_not_wait_ = true;
        try {
            member->conclude(LineHandler::End::crowded, worker);
            member->send(worker.replies_);
        } catch (const std::exception &error) {
            qv_log_print(kLogError, "a connection failed: %s\n", error.what());
        }
        worker.replies_.clear();
        worker.must_not_wait_ = false;
        worker.member_ = nullptr;
    }
    close(*member);
    return true;
}

void LineLoop::close(Member &member)
{
    // It may be among the events that are still to be served.
    for (int i = next_event_; i < event_count_; ++i) {
        epoll_event &event = events_[static_cast<std::size_t>(i)];
        if (event.data.ptr == &member)
            event.data.ptr = nullptr;
    }
    // Closing the socket is not enough: a child that has not reached its exec yet holds it too.
    watch(member, 0);
    table_.remove(member);
}

// ---- What they wait for ----

void LineLoop::watch(Member &member, std::uint32_t events)
{
    if (member.events == events)
        return;
    epoll_event event{};
    event.events = events;
    event.data.ptr = &member;
    const int operation = events == 0 ? EPOLL_CTL_DEL : member.events == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    ::epoll_ctl(epoll_.get(), operation, member.fd(), &event);
    member.events = events;
}

// What the connection waits for from now on.
void LineLoop::settle(Member &member)
{
    const bool all_read = member.has_just_read_all();
    table_.count(member);
    if (member.has_unsent()) {
        watch(member, member.write_events());
        if (member.stage != &table_.sending)
            table_.move(member, table_.sending);
    } else if (member.is_closing()) {
        all_read ? close(member) : drain(member);
    } else if (member.has_work()) {
        table_.move(member, table_.ready);
    } else if (member.is_listening()) {
        watch(member, EPOLLIN);
        if (member.stage != &table_.listening)
            table_.move(member, table_.listening);
    } else {
        watch(member, EPOLLIN);
        // A line that dribbles in is held to the time of the whole.
        if (member.was_answered() || member.stage == &table_.sending || member.stage == &table_.busy)
            table_.move(member, table_.idle);
    }
}

void LineLoop::drain(Member &member)
{
    if (member.drain())
        return close(member);
    watch(member, EPOLLIN);
    if (member.stage != &table_.draining) {
        ::shutdown(member.fd(), SHUT_WR);
        table_.move(member, table_.draining);
    }
}

// Whoever does something is late later: the timer stays, and is set anew when it has gone off. So requests
// need no system call for it.
void LineLoop::set_timer()
{
    const Milliseconds first = std::min(table_.next_late(), listeners_.resume_at());
    if (first >= timer_set_for_)
        return;
    timer_set_for_ = first;
    const auto at = first + kCoarseTick;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(at);
    itimerspec when{};
    when.it_value.tv_sec = seconds.count();
    when.it_value.tv_nsec = std::chrono::nanoseconds(at - seconds).count();
    ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

void LineLoop::end_late_ones(Worker &worker)
{
    const Milliseconds now = coarse_now();
    while (Member *const late = worker.leads_ ? table_.late(now) : nullptr) {
        if (late->stage == &table_.sending || late->stage == &table_.draining || !late->is_greeted()) {
            qv_log_print(kLogDebug, "connection closed: %s\n",
                         late->is_greeted() ? "an answer was not read" : "no handshake in time");
            close(*late);
        } else {
            serve(worker, *late, Reason::late);
        }
    }
    if (worker.leads_ && listeners_.resume_at() <= now)
        listeners_.resume();
}

// Who holds most goes, without a word: it does not read, or talks without an end.
void LineLoop::bound_memory()
{
    while (table_.held() > limits_.held) {
        Member *const largest = table_.largest();
        if (!largest)
            break;
        if (memory_.over())
            qv_log_print(kLogWarning, "connections hold %zu bytes: the one of %s is closed, maybe more\n",
                         table_.held(), largest->peer().source().c_str());
        close(*largest);
    }
    const std::size_t held = table_.held() + table_.size() * kMemberBytes;
    most_held_ = std::max(most_held_, held);
    had_much_ |= held > kMuchBytes;
    if (had_much_ && held < most_held_ / 4) {
        ::malloc_trim(0); // else the C library keeps what nobody needs again
        most_held_ = held;
        had_much_ = held > kLittleBytes; // what is left goes back too when it is let go of
    }
}

// ---- Serving one ----

void LineLoop::readable(Worker &worker, Member &member)
{
    if (!member.is_greeted() && !greet(member))
        return;
    const std::size_t most = event_count_ > kCrowd ? Channel::kLeastRead : kReadBytes;
    switch (member.read({worker.buffer_.get(), most})) {
    case ServedConnection::Came::nothing:
        return watch(member, member.read_events());
    case ServedConnection::Came::failure:
        qv_log_print(kLogDebug, "connection closed: %s\n", member.problem().c_str());
        return close(member);
    case ServedConnection::Came::something:
        if (!must_queue(member) || !member.has_work()) // half a line has nothing to wait a turn for
            return serve(worker, member);
        member.keep_input();
        table_.count(member);
        return table_.move(member, table_.ready);
    }
}

// Who says much at once waits for a turn when others talk too: a short question is answered before.
bool LineLoop::must_queue(const Member &member) const
{
    return member.held() > kShortBytes && (event_count_ > 1 || !table_.ready.members.empty());
}

// Over TLS the handshake comes before the conversation, and what it proves about the peer. True when it is
// done; else the connection waits for it, or ends.
bool LineLoop::greet(Member &member)
{
    switch (member.greet(make_handler_)) {
    case ServedConnection::Greeting::done:
        return true;
    case ServedConnection::Greeting::waits:
        watch(member, member.read_events());
        return false;
    case ServedConnection::Greeting::failed:
        log_failed_handshake(member);
        drain(member);
        return false;
    }
    return false;
}

void LineLoop::log_failed_handshake(const Member &member)
{
    if (!qv_log_wants(kLogDebug))
        return;
    const std::string problem = member.problem();
    if (failed_handshakes_.size() >= kLoggedSources)
        failed_handshakes_.clear();
    if (failed_handshakes_.insert(member.peer().address).second)
        qv_log_print(kLogDebug, "connection closed: no TLS with %s: %s; further ones are not logged\n",
                     member.peer().address.c_str(), problem.c_str());
}

// The more have something to say, the shorter is each one's turn, so that the last one's comes soon.
std::chrono::microseconds LineLoop::slice() const
{
    const auto speakers = table_.ready.members.size() + static_cast<std::size_t>(event_count_) + 1;
    return std::clamp<std::chrono::microseconds>(kRoundTime / speakers, kLeastSlice, kMostSlice);
}

// Runs the handler over what is there, or tells it the end, and leaves the connection in the state that
// follows. When the handler waited, the thread does not lead any more: what it can send is sent, for the loop
// may have ended by now, then a leader takes the connection from here.
void LineLoop::serve(Worker &worker, Member &member, Reason reason)
{
    worker.member_ = &member;
    try {
        if (reason == Reason::late)
            member.conclude_late(worker);
        else
            member.converse(worker, worker.replies_, slice());
        member.keep_input();
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "a connection failed: %s\n", error.what());
        member.give_up();
        worker.replies_.clear();
    }
    worker.member_ = nullptr;
    if (worker.leads_)
        return answer(worker, member);
    if (!member.send(worker.replies_))
        member.give_up();
    places_.leave(worker.place_of_);
    {
        const std::lock_guard lock(returned_mutex_);
        returned_.push_back(&member);
    }
    wake();
}

// Sends what the handler wrote, and what was left before.
void LineLoop::answer(Worker &worker, Member &member)
{
    const std::size_t unsent = member.unsent();
    if (!member.send(worker.replies_))
        return close(member);
    if (member.stage == &table_.sending && member.unsent() < unsent)
        table_.move(member, table_.sending); // it reads: its patience begins anew
    settle(member);
}

} // namespace qvcd

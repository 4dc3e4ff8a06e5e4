#include "platform/line_loop.h"

#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace qvcd {

namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::milliseconds;

constexpr std::size_t kReadBytes = std::size_t{64} << 10;
constexpr auto kTurnsTime = 2ms;             // for those with lines that wait, and for those that come
constexpr Milliseconds kDrainPatience = 1s;  // for a client that still talks when its answer is complete
constexpr Milliseconds kAcceptPause = 200ms; // after an error that only time can cure
constexpr std::size_t kLoggedSources = 256;  // whose failed handshakes are not logged again

} // namespace

struct LineLoop::Member : ServedConnection {
    using ServedConnection::ServedConnection;

    std::string source;       // as it is counted; empty: it is not
    std::size_t counted = 0;  // of held_
    std::uint32_t events = 0; // what epoll watches; 0: the connection is not registered
    Stage *stage = nullptr;
    std::list<Member>::iterator place;
    Milliseconds since{0};
};

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

  private:
    friend class LineLoop;
    LineLoop &loop_;
    std::unique_ptr<char[]> buffer_; // uninitialised: pages that are not used cost nothing
    ReplyStream replies_;
    Member *member_ = nullptr; // the one whose handler runs
    bool leads_ = false;
    bool must_not_wait_ = false;
};

// ---- Threads ----

LineLoop::LineLoop(MakeHandler make_handler, const ServerLimits &limits)
    : make_handler_(std::move(make_handler)), limits_(limits), first_{limits.first_line, {}},
      idle_{limits.idle, {}}, sending_{limits.send, {}}, draining_{kDrainPatience, {}},
      crew_([this] { return [this, worker = std::make_shared<Worker>(*this)] { return lead(*worker); }; })
{
}

LineLoop::~LineLoop() = default;

void LineLoop::add(UnixListener listener, bool local, std::shared_ptr<const TlsContext> tls)
{
    ::fcntl(listener.socket.get(), F_SETFL, ::fcntl(listener.socket.get(), F_GETFL) | O_NONBLOCK);
    listeners_.push_back(std::make_unique<Listener>(Listener{std::move(listener), local, std::move(tls)}));
}

bool LineLoop::start()
{
    epoll_.reset(::epoll_create1(EPOLL_CLOEXEC));
    wake_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = nullptr;
    bool good = epoll_ && wake_ && ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wake_.get(), &event) == 0;
    for (const auto &listener : listeners_) {
        // A listener's address is told from a connection's by its lowest bit.
        event.data.u64 = reinterpret_cast<std::uintptr_t>(listener.get()) | 1U;
        good = good && ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, listener->socket.socket.get(), &event) == 0;
    }
    if (!good) {
        qv_report_failure(std::string("cannot serve connections: ") + std::strerror(errno));
        return false;
    }
    return crew_.start(shared_from_this());
}

bool LineLoop::stop(Milliseconds patience)
{
    for (const auto &listener : listeners_) {
        if (!listener->socket.path.empty())
            remove_unix_socket(listener->socket);
    }
    stopping_ = true;
    places_.cut();
    wake();
    if (const std::size_t left = crew_.stop(patience); left > 0) {
        qv_log_print(kLogWarning, "server threads did not end in time: %zu\n", left);
        return false;
    }
    for (Stage *stage : {&first_, &idle_, &sending_, &draining_, &ready_, &busy_})
        stage->members.clear();
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
        if (accept_again_ != 0ms)
            accept_again();
        while (held_ > limits_.held && close_largest()) {
        }
        next_event_ = 0;
        event_count_ =
            std::max(0, ::epoll_wait(epoll_.get(), events_.data(), static_cast<int>(events_.size()),
                                     ready_.members.empty() ? milliseconds_to_wait() : 0));
    }
}

void LineLoop::dispatch(Worker &worker, const epoll_event &event)
{
    if (event.data.ptr == nullptr) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
        return take_returned(worker);
    }
    if (event.data.u64 & 1U)
        return accept_all(worker, *reinterpret_cast<Listener *>(event.data.u64 & ~std::uint64_t{1}));
    Member &member = *static_cast<Member *>(event.data.ptr);
    if (member.stage == &sending_)
        answer(worker, member);
    else if (member.stage == &draining_)
        drain(member);
    else if (member.stage != &ready_) // nothing more is read before its waiting lines have had their turn
        readable(worker, member);
}

void LineLoop::serve_ready(Worker &worker)
{
    if (ready_.members.empty())
        return;
    const Deadline until = std::chrono::steady_clock::now() + kTurnsTime;
    for (std::size_t turns = ready_.members.size(); worker.leads_ && turns > 0; --turns) {
        Member &member = ready_.members.front();
        move(member, busy_); // not late: we are
        serve(worker, member);
        if (std::chrono::steady_clock::now() >= until)
            break;
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

void LineLoop::Worker::begin_wait() noexcept
{
    Member &member = *member_;
    if (must_not_wait_)
        return;
    const bool first = leads_;
    if (first) {
        member.has_just_read_all(); // soon it will not be true any more
        loop_.watch(member, 0);
        loop_.move(member, loop_.busy_);
        leads_ = false;
        loop_.crew_.hand_over();
    }
    loop_.places_.go_out(member.fd());
    // Only this thread touches the connection now, so a client that does not read holds up nobody else.
    if (!member.send_all(replies_, loop_.limits_.send))
        member.give_up();
    // A place is kept to the end of the command: a short wait must not queue again behind long ones.
    if (first)
        loop_.places_.take(loop_.limits_.waiting + (member.is_privileged() ? loop_.limits_.reserved : 0));
}

// ---- Connections come and go ----

void LineLoop::accept_all(Worker &worker, Listener &listener)
{
    // One that comes alone needs no second look: epoll will tell of the next.
    const bool alone = ready_.members.empty() && event_count_ == 1;
    const Deadline until = alone ? Deadline() : std::chrono::steady_clock::now() + kTurnsTime;
    do {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        Fd socket(::accept4(listener.socket.socket.get(),
                            static_cast<sockaddr *>(static_cast<void *>(&address)), &size,
                            SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno != EAGAIN)
                pause_accepting(worker, errno);
            return;
        }
        if (Member *const member = admit(worker, listener, std::move(socket), address))
            readable(worker, *member); // the request is mostly there already
    } while (worker.leads_ && !alone && std::chrono::steady_clock::now() < until);
}

LineLoop::Member *LineLoop::admit(Worker &worker, Listener &listener, Fd socket,
                                  const sockaddr_storage &address)
{
    Peer peer = listener.local ? local_peer(socket.get()) : tcp_peer(address);
    std::unique_ptr<LineHandler> handler = listener.tls ? nullptr : make_handler_(peer);
    const bool is_privileged = handler && handler->is_privileged();
    std::string source = is_privileged ? "" : peer.source();
    if (!find_place(worker, source, is_privileged))
        return nullptr;
    Channel channel =
        listener.tls ? Channel(std::move(socket), listener.tls->accept()) : Channel(std::move(socket));
    const auto place =
        first_.members.emplace(first_.members.end(), std::move(channel), std::move(peer), std::move(handler));
    if (!is_privileged)
        ++sources_[source];
    place->source = std::move(source);
    place->place = place;
    place->stage = &first_;
    place->since = coarse_now();
    ++size_;
    return &*place;
}

// False, once after a log line, when there is none.
bool LineLoop::find_place(Worker &worker, const std::string &source, bool is_privileged)
{
    const auto found = is_privileged ? sources_.end() : sources_.find(source);
    if (found != sources_.end() && found->second >= limits_.per_source) {
        if (crowded_source_.over())
            qv_log_print(kLogWarning, "%s has %zu connections, further ones are closed\n", source.c_str(),
                         found->second);
        return false;
    }
    if (size_ < limits_.connections || make_room(worker))
        return true;
    if (is_privileged && size_ < limits_.connections + limits_.reserved)
        return true;
    if (crowd_.over())
        qv_log_print(kLogWarning, "all %zu connections are busy, further ones are closed\n", size_);
    return false;
}

// The one that was idle longest goes; where all have something to do, the one that takes no answer. False
// when all are served.
bool LineLoop::make_room(Worker &worker)
{
    Member *oldest = nullptr;
    for (Stage *stage : {&first_, &idle_, &draining_}) {
        if (!stage->members.empty() && (!oldest || stage->members.front().since < oldest->since))
            oldest = &stage->members.front();
    }
    if (!oldest && !sending_.members.empty())
        oldest = &sending_.members.front();
    if (!oldest)
        return false;
    if (oldest->is_greeted() && !oldest->is_closing()) {
        worker.member_ = oldest;
        worker.must_not_wait_ = true;
        try {
            oldest->conclude(LineHandler::End::crowded, worker);
            oldest->send(worker.replies_);
        } catch (const std::exception &error) {
            qv_log_print(kLogError, "a connection failed: %s\n", error.what());
        }
        worker.replies_.clear();
        worker.must_not_wait_ = false;
        worker.member_ = nullptr;
    }
    close(*oldest);
    return true;
}

// A listener that cannot be served stays readable: it is not watched for a while, or the loop would spin.
void LineLoop::pause_accepting(Worker &worker, int error)
{
    if (accept_trouble_.over())
        qv_log_print(kLogError, "cannot accept a connection: %s\n", std::strerror(error));
    make_room(worker);
    watch_listeners(0);
    accept_again_ = coarse_now() + kAcceptPause;
}

void LineLoop::accept_again()
{
    if (coarse_now() < accept_again_)
        return;
    accept_again_ = 0ms;
    watch_listeners(EPOLLIN);
}

void LineLoop::watch_listeners(std::uint32_t events)
{
    for (const auto &listener : listeners_) {
        epoll_event event{};
        event.events = events;
        event.data.u64 = reinterpret_cast<std::uintptr_t>(listener.get()) | 1U;
        ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, listener->socket.socket.get(), &event);
    }
}

void LineLoop::close(Member &member)
{
    for (int i = next_event_; i < event_count_;
         ++i) { // it may be among the events that are still to be served
        epoll_event &event = events_[static_cast<std::size_t>(i)];
        if (event.data.ptr == &member)
            event.data.ptr = nullptr;
    }
    const auto source = sources_.find(member.source);
    if (source != sources_.end() && --source->second == 0)
        sources_.erase(source);
    held_ -= member.counted;
    --size_;
    // Closing the socket is not enough: a child that has not reached its exec yet holds it too.
    watch(member, 0);
    member.stage->members.erase(member.place);
}

// ---- What they wait for ----

void LineLoop::move(Member &member, Stage &stage)
{
    member.since = coarse_now();
    stage.members.splice(stage.members.end(), member.stage->members, member.place);
    member.stage = &stage;
}

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
    count_held(member);
    if (member.has_unsent()) {
        watch(member, member.write_events());
        if (member.stage != &sending_)
            move(member, sending_);
    } else if (member.is_closing()) {
        all_read ? close(member) : drain(member);
    } else if (member.has_work()) {
        move(member, ready_);
    } else {
        watch(member, EPOLLIN);
        // A line that dribbles in is held to the time of the whole.
        if (member.was_answered() || member.stage == &sending_ || member.stage == &busy_)
            move(member, idle_);
    }
}

void LineLoop::drain(Member &member)
{
    if (member.drain())
        return close(member);
    watch(member, EPOLLIN);
    if (member.stage != &draining_) {
        ::shutdown(member.fd(), SHUT_WR);
        move(member, draining_);
    }
}

int LineLoop::milliseconds_to_wait() const
{
    Milliseconds first = Milliseconds::max();
    for (const Stage *stage : patient_) {
        if (!stage->members.empty())
            first = std::min(first, stage->members.front().since + stage->patience);
    }
    if (accept_again_ != 0ms)
        first = std::min(first, accept_again_);
    if (first == Milliseconds::max())
        return -1;
    return static_cast<int>(std::clamp<long long>((first - coarse_now()).count() + 1, 0, 1000000));
}

void LineLoop::end_late_ones(Worker &worker)
{
    const Milliseconds now = coarse_now();
    for (Stage *stage : patient_) {
        while (worker.leads_ && !stage->members.empty() &&
               stage->members.front().since + stage->patience <= now) {
            Member &late = stage->members.front();
            if (stage == &sending_ || stage == &draining_ || !late.is_greeted()) {
                qv_log_print(kLogDebug, "connection closed: %s\n",
                             late.is_greeted() ? "an answer was not read" : "no handshake in time");
                close(late);
            } else {
                serve(worker, late, Reason::late);
            }
        }
    }
}

void LineLoop::count_held(Member &member)
{
    const std::size_t now = member.held();
    held_ += now - member.counted;
    member.counted = now;
}

// Who holds most goes, without a word: it does not read, or talks without an end. False when nobody does.
bool LineLoop::close_largest()
{
    Member *largest = nullptr;
    for (Stage *stage : {&first_, &idle_, &sending_, &ready_}) {
        for (Member &member : stage->members) {
            if (!largest || member.counted > largest->counted)
                largest = &member;
        }
    }
    if (!largest || largest->counted == 0)
        return false;
    if (memory_.over())
        qv_log_print(kLogWarning, "connections hold %zu bytes: the one of %s is closed, maybe more\n", held_,
                     largest->peer().source().c_str());
    close(*largest);
    return true;
}

// ---- Serving one ----

void LineLoop::readable(Worker &worker, Member &member)
{
    if (!member.is_greeted() && !greet(member))
        return;
    switch (member.read({worker.buffer_.get(), kReadBytes})) {
    case ServedConnection::Came::nothing:
        return watch(member, member.read_events());
    case ServedConnection::Came::failure:
        qv_log_print(kLogDebug, "connection closed: %s\n", member.problem().c_str());
        return close(member);
    case ServedConnection::Came::something:
        return serve(worker, member);
    }
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
            member.converse(worker, worker.replies_);
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
    places_.leave();
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
    if (member.stage == &sending_ && member.unsent() < unsent)
        move(member, sending_); // it reads: its patience begins anew
    settle(member);
}

} // namespace qvcd

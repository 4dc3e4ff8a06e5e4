#include "platform/line_server.h"

#include "platform/channel.h"
#include "platform/line_buffers.h"
#include "platform/log.h"
#include "platform/thread.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <list>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <set>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace qvcd {

namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::milliseconds;

constexpr std::size_t kReadBytes = std::size_t{64} << 10;
constexpr auto kSliceTime = 250us; // for lines of one connection, then the others have their turn
constexpr auto kTurnsTime = 2ms;   // for those with lines that wait, and for those that come
constexpr std::size_t kSliceReplyBytes = std::size_t{256} << 10;
constexpr int kMaxEvents = 64;
constexpr std::size_t kDrainBytes = std::size_t{4} << 20;
constexpr Milliseconds kDrainPatience = 1s;  // for a client that still talks when its answer is complete
constexpr Milliseconds kAcceptPause = 200ms; // after an error that only time can cure
constexpr Milliseconds kLogPause = 60s;      // between log lines about such errors
constexpr std::size_t kIdleThreads = 2;      // more of them end
constexpr std::size_t kLoggedSources = 256;  // whose failed handshakes are not logged again

// The kernel keeps it at hand: no system call, exact to a tick.
Milliseconds now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::chrono::duration_cast<Milliseconds>(std::chrono::seconds(time.tv_sec) +
                                                    std::chrono::nanoseconds(time.tv_nsec));
}

// As the kernel knew them at the connect: no look-up of the user that could wait for a directory service.
std::vector<gid_t> groups_of_peer(int socket)
{
    std::vector<gid_t> groups(32);
    for (;;) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const int result = ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
        const std::size_t count = size / sizeof(gid_t);
        if (result == 0 || errno != ERANGE || count <= groups.size()) {
            groups.resize(result == 0 ? count : 0);
            return groups;
        }
        groups.resize(count);
    }
}

// Those of poll(2) are the same bits.
std::uint32_t epoll_events(short poll_events)
{
    static_assert(EPOLLIN == POLLIN && EPOLLOUT == POLLOUT);
    return static_cast<std::uint32_t>(poll_events);
}

Peer local_peer(int socket)
{
    Peer peer;
    peer.local = true;
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0) {
        peer.uid = credentials.uid;
        peer.gid = credentials.gid;
        peer.pid = credentials.pid;
        if (peer.uid != 0 && peer.uid != ::geteuid())
            peer.groups = groups_of_peer(socket);
    }
    return peer;
}

Peer tcp_peer(const sockaddr_storage &address)
{
    Peer peer;
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.ss_family == AF_INET) {
        sockaddr_in v4{};
        std::memcpy(&v4, &address, sizeof v4);
        ::inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size());
    } else if (address.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &address, sizeof v6);
        if (IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr))
            ::inet_ntop(AF_INET, &v6.sin6_addr.s6_addr[12], text.data(), text.size());
        else
            ::inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size());
    }
    peer.address = text.data();
    return peer;
}

} // namespace

// The loop. Who leads waits for events and serves them; the others wait to lead. What is marked "the
// leader's" goes from one leader to the next, through mutex_.
class LineServer::Loop : public std::enable_shared_from_this<LineServer::Loop> {
  public:
    Loop(MakeHandler make_handler, ServerLimits limits)
        : make_handler_(std::move(make_handler)), limits_(limits), first_{limits.first_line, {}},
          idle_{limits.idle, {}}, sending_{limits.send, {}}, draining_{kDrainPatience, {}}
    {
    }

    void add(UnixListener listener, bool local, std::shared_ptr<const TlsContext> tls = nullptr);
    bool start();
    bool stop(Milliseconds patience);

  private:
    struct Connection;
    class Worker;

    // Connections that end when nothing changes for `patience`, in the order in which they do.
    struct Patience {
        Milliseconds patience;
        std::list<Connection *> waiting;
    };

    struct Listener {
        UnixListener socket;
        bool local;
        std::shared_ptr<const TlsContext> tls; // none: in clear
    };

    struct Connection {
        Channel channel;
        Peer peer;
        std::unique_ptr<LineHandler> handler; // none before the handshake
        LineInput input;
        std::string output; // what the client did not take yet
        std::size_t sent = 0;
        std::size_t drained = 0;
        std::uint32_t events = 0; // what epoll watches; 0: the connection is not registered
        bool input_ended = false;
        bool all_read = false; // the socket was empty a moment ago
        bool closing = false;  // the conversation is over, `output` is still to be sent
        bool ready = false;    // in ready_
        bool answered = false; // a line was handled since the connection began to wait
        Patience *list = nullptr;
        std::list<Connection *>::iterator place;
        Milliseconds since{0};
    };

    bool spawn_locked();
    void run();
    void lead(Worker &worker);
    void give_lead();
    void wake();

    void accept_all(Worker &worker, Listener &listener);
    void pause_accepting(int error);
    void accept_again();
    void watch_listeners(std::uint32_t events);
    bool admit(const Peer &peer);
    bool make_room();
    bool greet(Connection &connection);
    void log_failed_handshake(const Connection &connection);
    void readable(Worker &worker, Connection &connection);
    void writable(Worker &worker, Connection &connection);
    void serve_waiting(Worker &worker);
    void serve(Worker &worker, Connection &connection, std::optional<LineHandler::End> end = std::nullopt);
    void converse(Worker &worker, Connection &connection);
    void conclude(Worker &worker, Connection &connection, LineHandler::End why);
    bool send_some(ReplyStream &replies, Connection &connection);
    bool send_replies(Worker &worker, Connection &connection);
    void settle(Connection &connection);
    void drain(Connection &connection);
    void watch(Connection &connection, std::uint32_t events);
    void wait_in(Connection &connection, Patience *list);
    void close(Connection &connection);
    void take_returned(Worker &worker);
    void end_late_ones(Worker &worker);
    int milliseconds_to_wait() const;
    static std::size_t line_limit(const Connection &connection);

    const MakeHandler make_handler_;
    const ServerLimits limits_;
    std::vector<std::unique_ptr<Listener>> listeners_;
    Fd epoll_;
    Fd wake_; // eventfd(2)

    std::mutex mutex_; // guards what follows
    std::condition_variable followers_;
    std::condition_variable places_;
    bool led_ = false;
    bool stopping_ = false;
    std::size_t threads_ = 0;
    std::size_t idle_threads_ = 0;
    std::size_t waiting_ = 0;            // commands that wait or have waited, and have not ended
    std::vector<Connection *> returned_; // their commands waited and have ended
    std::vector<int> outside_;           // sockets of those that wait, for stop()

    // The leader's.
    std::unordered_map<Connection *, std::unique_ptr<Connection>> connections_;
    std::map<std::string, std::size_t, std::less<>> sources_;
    std::deque<Connection *> ready_; // with lines that wait their turn
    Patience first_, idle_, sending_, draining_;
    std::array<epoll_event, kMaxEvents> events_{};
    int event_count_ = 0;
    int next_event_ = 0;
    std::vector<char> buffer_ = std::vector<char>(kReadBytes);
    Milliseconds log_again_{0}; // about accept errors
    bool crowd_logged_ = false;
    std::set<std::string, std::less<>> failed_handshakes_; // sources of which one was logged
    Milliseconds accept_again_{0};                         // 0: listeners are watched
};

// A thread of the loop, and the connection that it serves.
class LineServer::Loop::Worker final : public LineConnection {
  public:
    explicit Worker(Loop &loop) : loop_(loop) {}

    const Peer &peer() const override { return connection_->peer; }
    std::FILE *out() override { return replies_.file(); }
    void begin_wait() noexcept override;
    void end_wait() noexcept override;
    std::size_t unsent() noexcept override
    {
        return replies_.size() + connection_->output.size() - connection_->sent;
    }

    bool leads_ = false;
    ReplyStream replies_;
    Connection *connection_ = nullptr; // the one whose handler runs

  private:
    friend class Loop;
    Loop &loop_;
};

// ---- Threads ----

void LineServer::Loop::add(UnixListener listener, bool local, std::shared_ptr<const TlsContext> tls)
{
    ::fcntl(listener.socket.get(), F_SETFL, ::fcntl(listener.socket.get(), F_GETFL) | O_NONBLOCK);
    listeners_.push_back(std::make_unique<Listener>(Listener{std::move(listener), local, std::move(tls)}));
}

bool LineServer::Loop::start()
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
    const std::lock_guard lock(mutex_);
    return spawn_locked() && spawn_locked();
}

bool LineServer::Loop::spawn_locked()
{
    try {
        start_quiet_thread([self = shared_from_this()] { self->run(); }).detach();
        ++threads_;
        ++idle_threads_;
        return true;
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "cannot start a server thread: %s\n", error.what());
        return false;
    }
}

void LineServer::Loop::run()
{
    Worker worker(*this);
    std::unique_lock lock(mutex_);
    while (!stopping_ && idle_threads_ <= kIdleThreads) {
        if (led_) {
            followers_.wait(lock);
            continue;
        }
        led_ = worker.leads_ = true;
        --idle_threads_;
        lock.unlock();
        lead(worker);
        lock.lock();
        ++idle_threads_;
        if (worker.leads_) { // the server stops
            led_ = worker.leads_ = false;
            followers_.notify_all();
        }
    }
    --idle_threads_;
    --threads_;
    followers_.notify_all();
}

void LineServer::Loop::wake()
{
    ::eventfd_write(wake_.get(), 1);
}

// Somebody else goes on with the loop, in the middle of its events. When the kernel gives no thread for it,
// that is the first whose wait ends.
void LineServer::Loop::give_lead()
{
    const std::lock_guard lock(mutex_);
    led_ = false;
    if (idle_threads_ == 0)
        spawn_locked();
    followers_.notify_one();
}

void LineServer::Loop::lead(Worker &worker)
{
    for (;;) {
        while (worker.leads_ && next_event_ < event_count_) {
            const epoll_event event = events_[static_cast<std::size_t>(next_event_++)];
            if (event.data.ptr == nullptr) {
                eventfd_t count = 0;
                ::eventfd_read(wake_.get(), &count);
                take_returned(worker);
            } else if (event.data.u64 & 1U) {
                accept_all(worker, *reinterpret_cast<Listener *>(event.data.u64 & ~std::uint64_t{1}));
            } else if (auto &connection = *static_cast<Connection *>(event.data.ptr); connection.ready) {
                // Nothing more is read before its waiting lines have had their turn.
            } else if (connection.list == &sending_) {
                writable(worker, connection);
            } else {
                readable(worker, connection);
            }
        }
        serve_waiting(worker);
        if (worker.leads_)
            end_late_ones(worker);
        if (!worker.leads_)
            return;
        accept_again();
        {
            const std::lock_guard lock(mutex_);
            if (stopping_)
                return;
        }
        next_event_ = 0;
        event_count_ = std::max(0, ::epoll_wait(epoll_.get(), events_.data(), kMaxEvents,
                                                ready_.empty() ? milliseconds_to_wait() : 0));
    }
}

void LineServer::Loop::serve_waiting(Worker &worker)
{
    if (!worker.leads_ || ready_.empty()) // what is the leader's may be another thread's now
        return;
    const Deadline until = std::chrono::steady_clock::now() + kTurnsTime;
    for (std::size_t turns = ready_.size(); worker.leads_ && turns > 0; --turns) {
        Connection &connection = *ready_.front();
        ready_.pop_front();
        connection.ready = false;
        serve(worker, connection);
        if (std::chrono::steady_clock::now() >= until)
            break;
    }
}

void LineServer::Loop::Worker::begin_wait() noexcept
{
    Connection &connection = *connection_;
    const bool first = leads_;
    if (first) {
        connection.all_read = false;
        loop_.watch(connection, 0);
        loop_.wait_in(connection, nullptr);
        leads_ = false;
        loop_.give_lead();
    }
    std::unique_lock lock(loop_.mutex_);
    loop_.outside_.push_back(connection.channel.fd());
    lock.unlock();
    // Only this thread touches the connection now, so a client that does not read holds up nobody else.
    const std::string_view left = std::string_view(connection.output).substr(connection.sent);
    if (!connection.channel.write_all(left, loop_.limits_.send) ||
        !connection.channel.write_all(replies_.text(), loop_.limits_.send))
        connection.input_ended = connection.closing = true; // nobody is there to be told the rest
    replies_.clear();
    connection.output.clear();
    connection.sent = 0;

    if (!first)
        return;
    // A place is kept to the end of the command: a short wait must not queue again behind long ones.
    lock.lock();
    const std::size_t places =
        loop_.limits_.waiting + (connection.handler->is_privileged() ? loop_.limits_.reserved : 0);
    loop_.places_.wait(lock, [&] { return loop_.waiting_ < places; });
    ++loop_.waiting_;
}

void LineServer::Loop::Worker::end_wait() noexcept
{
    const std::lock_guard lock(loop_.mutex_);
    const auto here = std::ranges::find(loop_.outside_, connection_->channel.fd());
    if (here != loop_.outside_.end())
        loop_.outside_.erase(here);
}

// ---- Connections come and go ----

void LineServer::Loop::accept_all(Worker &worker, Listener &listener)
{
    // One that comes alone needs no second look: epoll will tell of the next.
    const bool alone = ready_.empty() && event_count_ == 1;
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
                pause_accepting(errno);
            return;
        }
        Peer peer = listener.local ? local_peer(socket.get()) : tcp_peer(address);
        if (!admit(peer))
            continue;
        auto owned = std::make_unique<Connection>();
        Connection &connection = *owned;
        connection.channel =
            listener.tls ? Channel(std::move(socket), listener.tls->accept()) : Channel(std::move(socket));
        connection.peer = std::move(peer);
        connections_.emplace(&connection, std::move(owned));
        wait_in(connection, &first_);
        readable(worker, connection); // the request is mostly there already
    } while (worker.leads_ && !alone && std::chrono::steady_clock::now() < until);
}

// A listener that cannot be served stays readable: it is not watched for a while, or the loop would spin.
void LineServer::Loop::pause_accepting(int error)
{
    if (now() >= log_again_)
        qv_log_print(kLogError, "cannot accept a connection: %s\n", std::strerror(error));
    log_again_ = now() + kLogPause;
    make_room();
    watch_listeners(0);
    accept_again_ = now() + kAcceptPause;
}

void LineServer::Loop::accept_again()
{
    if (accept_again_ == 0ms || now() < accept_again_)
        return;
    accept_again_ = 0ms;
    watch_listeners(EPOLLIN);
}

void LineServer::Loop::watch_listeners(std::uint32_t events)
{
    for (const auto &listener : listeners_) {
        epoll_event event{};
        event.events = events;
        event.data.u64 = reinterpret_cast<std::uintptr_t>(listener.get()) | 1U;
        ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, listener->socket.socket.get(), &event);
    }
}

bool LineServer::Loop::admit(const Peer &peer)
{
    if (connections_.size() >= limits_.connections && !make_room()) {
        if (!std::exchange(crowd_logged_, true))
            qv_log_print(kLogWarning, "all %zu connections are busy, further ones are closed\n",
                         connections_.size());
        return false;
    }
    if (!peer.local) {
        std::size_t &count = sources_[peer.address];
        if (count >= limits_.per_source) {
            if (!std::exchange(crowd_logged_, true))
                qv_log_print(kLogWarning, "%s has %zu connections, further ones are closed\n",
                             peer.address.c_str(), count);
            return false;
        }
        ++count;
    }
    return true;
}

// The one that was idle longest goes; where all have something to do, the one that takes no answer. False
// when all are served.
bool LineServer::Loop::make_room()
{
    Connection *oldest = nullptr;
    for (const Patience *list : {&first_, &idle_, &draining_}) {
        if (!list->waiting.empty() && (!oldest || list->waiting.front()->since < oldest->since))
            oldest = list->waiting.front();
    }
    if (!oldest && !sending_.waiting.empty())
        oldest = sending_.waiting.front();
    if (oldest)
        close(*oldest);
    return oldest != nullptr;
}

void LineServer::Loop::watch(Connection &connection, std::uint32_t events)
{
    if (connection.events == events)
        return;
    epoll_event event{};
    event.events = events;
    event.data.ptr = &connection;
    const int operation = events == 0              ? EPOLL_CTL_DEL
                          : connection.events == 0 ? EPOLL_CTL_ADD
                                                   : EPOLL_CTL_MOD;
    ::epoll_ctl(epoll_.get(), operation, connection.channel.fd(), &event);
    connection.events = events;
}

void LineServer::Loop::wait_in(Connection &connection, Patience *list)
{
    connection.since = now();
    if (connection.list && list)
        list->waiting.splice(list->waiting.end(), connection.list->waiting, connection.place);
    else if (list)
        connection.place = list->waiting.insert(list->waiting.end(), &connection);
    else if (connection.list)
        connection.list->waiting.erase(connection.place);
    connection.list = list;
}

void LineServer::Loop::close(Connection &connection)
{
    wait_in(connection, nullptr);
    if (connection.ready)
        std::erase(ready_, &connection);
    for (int i = next_event_; i < event_count_;
         ++i) { // it may be among the events that are still to be served
        epoll_event &event = events_[static_cast<std::size_t>(i)];
        if (event.data.ptr == &connection)
            event.data.u64 = 0;
    }
    if (!connection.peer.local) {
        const auto source = sources_.find(connection.peer.address);
        if (source != sources_.end() && --source->second == 0)
            sources_.erase(source);
    }
    // Closing the socket is not enough: a child that has not reached its exec yet holds it too.
    watch(connection, 0);
    connections_.erase(&connection);
}

int LineServer::Loop::milliseconds_to_wait() const
{
    Milliseconds first = Milliseconds::max();
    for (const Patience *list : {&first_, &idle_, &sending_, &draining_}) {
        if (!list->waiting.empty())
            first = std::min(first, list->waiting.front()->since + list->patience);
    }
    if (accept_again_ != 0ms)
        first = std::min(first, accept_again_);
    if (first == Milliseconds::max())
        return -1;
    return static_cast<int>(std::clamp<long long>((first - now()).count() + 1, 0, 1000000));
}

void LineServer::Loop::end_late_ones(Worker &worker)
{
    for (Patience *list : {&first_, &idle_, &sending_, &draining_}) {
        while (worker.leads_ && !list->waiting.empty() &&
               list->waiting.front()->since + list->patience <= now()) {
            Connection &late = *list->waiting.front();
            if (list == &sending_ || list == &draining_ || !late.handler) {
                qv_log_print(kLogDebug, "connection closed: %s\n",
                             late.handler ? "an answer was not read" : "no handshake in time");
                close(late);
            } else {
                serve(worker, late, late.input.empty() ? LineHandler::End::idle : LineHandler::End::bad);
            }
        }
    }
}

// ---- Input, handlers, output ----

// Over TLS the handshake comes before the conversation, and what it proves about the peer. True when it is
// done; else the connection waits for it, or ends.
bool LineServer::Loop::greet(Connection &connection)
{
    if (connection.channel.handshake()) {
        connection.peer.certificate_user = connection.channel.certificate_user();
        connection.handler = make_handler_(connection.peer);
        return true;
    }
    if (errno == EAGAIN) {
        watch(connection, epoll_events(connection.channel.read_events()));
        return false;
    }
    log_failed_handshake(connection);
    connection.closing = true;
    drain(connection);
    return false;
}

void LineServer::Loop::log_failed_handshake(const Connection &connection)
{
    if (!qv_log_wants(kLogDebug))
        return;
    const std::string problem = connection.channel.problem();
    if (failed_handshakes_.size() >= kLoggedSources)
        failed_handshakes_.clear();
    if (failed_handshakes_.insert(connection.peer.address).second)
        qv_log_print(kLogDebug, "connection closed: no TLS with %s: %s; further ones are not logged\n",
                     connection.peer.address.c_str(), problem.c_str());
}

void LineServer::Loop::readable(Worker &worker, Connection &connection)
{
    if (connection.list == &draining_)
        return drain(connection);
    if (!connection.handler && !greet(connection))
        return;
    const ssize_t n = connection.channel.read(buffer_.data(), buffer_.size());
    if (n < 0 && (errno == EAGAIN || errno == EINTR))
        return watch(connection, epoll_events(connection.channel.read_events()));
    if (n < 0) {
        qv_log_print(kLogDebug, "connection closed: %s\n", connection.channel.problem().c_str());
        return close(connection);
    }
    connection.input_ended = n == 0;
    connection.all_read = connection.channel.in_clear() && static_cast<std::size_t>(n) < buffer_.size();
    connection.input.append({buffer_.data(), static_cast<std::size_t>(n)});
    serve(worker, connection);
}

void LineServer::Loop::writable(Worker &worker, Connection &connection)
{
    if (send_replies(worker, connection))
        settle(connection);
}

// Runs the handler over what is there, or tells it the end, and leaves the connection in the state that
// follows. When the handler waited, the thread does not lead any more: what it can send is sent, for the loop
// may have ended by now, then a leader takes the connection from here.
void LineServer::Loop::serve(Worker &worker, Connection &connection, std::optional<LineHandler::End> end)
{
    worker.connection_ = &connection;
    try {
        if (end)
            conclude(worker, connection, *end);
        else
            converse(worker, connection);
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "a connection failed: %s\n", error.what());
        connection.closing = connection.input_ended = true;
        worker.replies_.clear();
    }
    worker.connection_ = nullptr;
    if (worker.leads_) {
        if (send_replies(worker, connection))
            settle(connection);
        return;
    }
    if (!send_some(worker.replies_, connection))
        connection.closing = connection.input_ended = true;
    const std::lock_guard lock(mutex_);
    --waiting_;
    places_.notify_all();
    returned_.push_back(&connection);
    wake();
}

std::size_t LineServer::Loop::line_limit(const Connection &connection)
{
    const std::size_t limit = connection.handler->max_line_bytes();
    return limit == kMaxLineBytes ? limit + 1 : limit; // with the newline
}

void LineServer::Loop::converse(Worker &worker, Connection &connection)
{
    LineHandler &handler = *connection.handler;
    std::optional<Deadline> until; // a line that comes alone needs no clock
    while (!connection.closing) {
        const std::size_t limit = line_limit(connection);
        const bool whole = connection.input.has_line(limit);
        if (!whole && connection.input_ended && connection.input.empty())
            conclude(worker, connection, LineHandler::End::input);
        if (!whole && (connection.closing || !connection.input_ended))
            break;
        const std::string_view line = connection.input.take(limit);
        if (!until && !connection.input.empty())
            until = std::chrono::steady_clock::now() + kSliceTime;
        connection.answered = true;
        if (line.size() > kMaxLineBytes && line.back() != '\n') {
            qv_log_print(kLogDebug, "connection closed: a line is too long\n");
            conclude(worker, connection, LineHandler::End::bad);
        } else if (handler.line(line, worker) == LineHandler::Next::close) {
            connection.closing = true;
        }
        if (worker.replies_.size() > kSliceReplyBytes ||
            (until && std::chrono::steady_clock::now() >= *until))
            break;
    }
    connection.input.tidy();
}

void LineServer::Loop::conclude(Worker &worker, Connection &connection, LineHandler::End why)
{
    connection.handler->end(why, worker);
    connection.closing = true;
}

// Sends what the client takes now, the rest is kept. False when nobody is there to be told the rest.
bool LineServer::Loop::send_some(ReplyStream &replies, Connection &connection)
{
    std::string_view text = replies.text();
    bool good = !replies.broken();
    if (!connection.output.empty()) {
        connection.output.append(text);
        text = std::string_view(connection.output).substr(connection.sent);
    }
    std::size_t taken = 0;
    while (good && taken < text.size()) {
        const ssize_t n = connection.channel.write(text.substr(taken));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN)
            break;
        good = n >= 0;
        if (good)
            taken += static_cast<std::size_t>(n);
    }
    if (!good || taken == text.size()) {
        connection.output = std::string();
        connection.sent = 0;
    } else if (!connection.output.empty()) {
        connection.sent += taken;
    } else {
        connection.output = text.substr(taken);
    }
    replies.clear();
    return good;
}

// False when the connection is gone.
bool LineServer::Loop::send_replies(Worker &worker, Connection &connection)
{
    const std::size_t sent = connection.sent;
    if (!send_some(worker.replies_, connection)) {
        close(connection);
        return false;
    }
    if (connection.sent > sent && connection.list == &sending_)
        wait_in(connection, &sending_); // it reads: its patience begins anew
    return true;
}

// What the connection waits for from now on.
void LineServer::Loop::settle(Connection &connection)
{
    const bool all_read = std::exchange(connection.all_read, false);
    const bool unsent =
        !connection.output.empty() || (connection.closing && !connection.channel.finish() && errno == EAGAIN);
    if (unsent) {
        watch(connection, epoll_events(connection.channel.write_events()));
        if (connection.list != &sending_)
            wait_in(connection, &sending_);
        return;
    }
    if (connection.closing)
        return all_read ? close(connection) : drain(connection);
    if (connection.input.has_line(line_limit(connection)) || connection.input_ended) {
        wait_in(connection, nullptr); // now it is we who are late
        connection.ready = true;
        ready_.push_back(&connection);
        return;
    }
    watch(connection, EPOLLIN);
    // A line that dribbles in is held to the time of the whole.
    if (std::exchange(connection.answered, false) || connection.list == &sending_ || !connection.list)
        wait_in(connection, &idle_);
}

// Closing a socket that still holds input throws away the end of the answer (TCP resets the connection), so
// what the client still says is read and dropped, as it comes from the socket.
void LineServer::Loop::drain(Connection &connection)
{
    std::array<char, 16384> waste;
    while (!connection.input_ended && connection.drained < kDrainBytes) {
        const ssize_t n = ::recv(connection.channel.fd(), waste.data(), waste.size(), MSG_DONTWAIT);
        // A client that said nothing more hears the end from the close. One whose handshake failed may think
        // that it is done, and send its request, and is to read why.
        if (n < 0 && errno == EAGAIN && connection.drained == 0 && connection.handler)
            break;
        if (n < 0 && errno == EAGAIN) {
            watch(connection, EPOLLIN);
            if (connection.list != &draining_) {
                ::shutdown(connection.channel.fd(), SHUT_WR);
                wait_in(connection, &draining_);
            }
            return;
        }
        if (n <= 0)
            break;
        connection.drained += static_cast<std::size_t>(n);
    }
    close(connection);
}

void LineServer::Loop::take_returned(Worker &worker)
{
    std::vector<Connection *> returned;
    {
        const std::lock_guard lock(mutex_);
        returned.swap(returned_);
    }
    for (Connection *connection : returned) {
        if (send_replies(worker, *connection))
            settle(*connection);
    }
}

// ---- The end ----

bool LineServer::Loop::stop(Milliseconds patience)
{
    for (const auto &listener : listeners_) {
        if (!listener->socket.path.empty())
            remove_unix_socket(listener->socket);
    }
    std::unique_lock lock(mutex_);
    stopping_ = true;
    for (const int socket : outside_)
        ::shutdown(socket, SHUT_RDWR);
    wake();
    followers_.notify_all();
    const bool ended = followers_.wait_for(lock, patience, [this] { return threads_ == 0; });
    if (!ended) {
        qv_log_print(kLogWarning, "server threads did not end in time: %zu\n", threads_);
        return false;
    }
    connections_.clear();
    listeners_.clear();
    return true;
}

// ---- The interface ----

LineServer::LineServer(MakeHandler make_handler, ServerLimits limits)
    : loop_(std::make_shared<Loop>(std::move(make_handler), limits))
{
}

LineServer::~LineServer()
{
    if (loop_)
        stop(0ms);
}

void LineServer::listen(UnixListener listener)
{
    loop_->add(std::move(listener), true);
}

void LineServer::listen(Fd tcp_socket, std::shared_ptr<const TlsContext> tls)
{
    UnixListener listener;
    listener.socket = std::move(tcp_socket);
    loop_->add(std::move(listener), false, std::move(tls));
}

bool LineServer::start()
{
    return loop_->start();
}

bool LineServer::stop(std::chrono::milliseconds patience)
{
    const bool ended = loop_->stop(patience);
    loop_.reset(); // threads that are left behind hold it too
    return ended;
}

} // namespace qvcd

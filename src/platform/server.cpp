#include "platform/server.h"

#include "platform/log.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <vector>

namespace qvcd {

namespace {

using namespace std::chrono_literals;

constexpr auto kAcceptRetry = 200ms; // after an error that only time can cure (no descriptors left)
constexpr auto kDrainPatience = 1s;  // for a client that still talks when its answer is complete
constexpr std::size_t kDrainBytes = 4 << 20;
constexpr std::size_t kMostWaiting = 64; // of one server, whose places are given away

/// One listening socket and the threads that serve its clients. The threads hold it too, so one that is left
/// behind at the end still finds everything it touches.
class Server final : public std::enable_shared_from_this<Server>, private ServerPlace {
  public:
    Server(UnixListener listener, int places, ConnectionHandler handler)
        : listener_(std::move(listener)), handler_(std::move(handler)),
          places_(static_cast<std::size_t>(places))
    {
    }

    bool start();
    void stop();
    bool join(Deadline deadline);

  private:
    struct Worker {
        std::thread thread;
        int connection = -1; // open socket that stop() shuts down
        bool running = true;
    };

    void leave() noexcept override;
    void take_again() noexcept override;
    bool add_worker();
    void keep_one_idle();
    void run(Worker &self);
    bool is_over(Worker &self);
    Fd accept_one();
    bool wait_out_error(int error);
    void serve(Worker &self, Fd socket);

    const UnixListener listener_; // a TCP server has no path
    const ConnectionHandler handler_;
    const std::size_t places_;

    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::list<Worker> workers_;
    std::size_t idle_ = 0;    // wait for a client
    std::size_t waiting_ = 0; // have left their places
    bool stopping_ = false;
    bool in_trouble_ = false; // an accept error was logged
};

bool Server::start()
{
    const std::lock_guard lock(mutex_);
    while (workers_.size() < places_) {
        if (!add_worker())
            return false;
    }
    return true;
}

bool Server::add_worker()
{
    Worker &worker = workers_.emplace_back();
    try {
        worker.thread = start_quiet_thread([self = shared_from_this(), &worker] { self->run(worker); });
    } catch (const std::system_error &error) {
        workers_.pop_back();
        qv_report_failure(std::string("cannot start a server thread: ") + error.what());
        return false;
    }
    ++idle_;
    return true;
}

// While there are places, a client that comes finds somebody.
void Server::keep_one_idle()
{
    if (!stopping_ && idle_ == 0 && waiting_ <= kMostWaiting && workers_.size() - waiting_ < places_)
        add_worker();
}

void Server::leave() noexcept
{
    const std::lock_guard lock(mutex_);
    ++waiting_;
    keep_one_idle();
}

void Server::take_again() noexcept
{
    const std::lock_guard lock(mutex_);
    --waiting_;
}

void Server::run(Worker &self)
{
    do {
        if (Fd socket = accept_one())
            serve(self, std::move(socket));
    } while (!is_over(self));
}

// A thread ends when the server stops, or when all places are taken because somebody who waited has come
// back.
bool Server::is_over(Worker &self)
{
    const std::lock_guard lock(mutex_);
    if (!stopping_ && workers_.size() - waiting_ <= places_) {
        ++idle_;
        return false;
    }
    self.running = false;
    changed_.notify_all();
    if (stopping_)
        return true; // join() has the list
    self.thread.detach();
    workers_.remove_if([&self](const Worker &worker) { return &worker == &self; });
    return true;
}

// The next client; empty when the server stops.
Fd Server::accept_one()
{
    for (;;) {
        Fd socket(::accept4(listener_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket)
            return socket;
        const int error = errno;
        if (error != EINTR && error != ECONNABORTED && !wait_out_error(error))
            return Fd();
    }
}

// Accept fails at once for as long as the process has no descriptors left: trying again without a pause would
// take the processor. False when the server stops.
bool Server::wait_out_error(int error)
{
    std::unique_lock lock(mutex_);
    if (!stopping_ && !in_trouble_) {
        in_trouble_ = true;
        qv_log_print(kLogError, "cannot accept a connection: %s\n", std::strerror(error));
    }
    changed_.wait_for(lock, kAcceptRetry, [this] { return stopping_; });
    return !stopping_;
}

// Closing a socket that still holds input throws away the end of the answer (TCP resets the connection), so
// what the client still says is read and dropped.
void drain(int socket)
{
    std::array<char, 16384> waste;
    ssize_t n = ::recv(socket, waste.data(), waste.size(), MSG_DONTWAIT);
    if (n <= 0)
        return;
    ::shutdown(socket, SHUT_WR);
    const Deadline deadline = deadline_in(kDrainPatience);
    for (std::size_t total = 0; n > 0 && total < kDrainBytes; total += static_cast<std::size_t>(n)) {
        if (poll_until(socket, POLLIN, deadline) <= 0)
            return;
        n = ::recv(socket, waste.data(), waste.size(), MSG_DONTWAIT);
    }
}

void Server::serve(Worker &self, Fd socket)
{
    {
        const std::lock_guard lock(mutex_);
        if (stopping_)
            return;
        self.connection = socket.get();
        in_trouble_ = false;
        --idle_;
        keep_one_idle();
    }
    try {
        ServerConnection connection(socket.get(), kSendTimeout, this);
        handler_(connection);
        if (connection.flush())
            drain(socket.get());
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "a connection failed: %s\n", error.what());
    }
    // The number may be another's socket as soon as it is closed, so stop() must not see it any more.
    const std::lock_guard lock(mutex_);
    self.connection = -1;
}

void Server::stop()
{
    if (!listener_.path.empty())
        remove_unix_socket(listener_);
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
    ::shutdown(listener_.socket.get(), SHUT_RDWR);
    for (const Worker &worker : workers_) {
        if (worker.connection >= 0)
            ::shutdown(worker.connection, SHUT_RDWR);
    }
}

// False when a thread did not come back in time.
bool Server::join(Deadline deadline)
{
    std::unique_lock lock(mutex_);
    const bool all = changed_.wait_until(lock, deadline, [this] {
        return std::ranges::none_of(workers_, [](const Worker &worker) { return worker.running; });
    });
    for (Worker &worker : workers_) {
        if (worker.running) {
            qv_log_print(kLogWarning, "a connection did not end in time\n");
            worker.thread.detach();
            continue;
        }
        lock.unlock(); // its last step is to let go of the lock
        worker.thread.join();
        lock.lock();
    }
    return all;
}

// ---- All servers of the process ----

struct Servers {
    std::mutex mutex;
    std::vector<std::shared_ptr<Server>> running;
};

Servers &servers()
{
    static Servers *const s = new Servers; // never destroyed, as threads may be left behind
    return *s;
}

bool end_servers(const std::vector<std::shared_ptr<Server>> &ending, std::chrono::milliseconds patience)
{
    const Deadline deadline = deadline_in(patience);
    for (const auto &server : ending)
        server->stop();
    bool all = true;
    for (const auto &server : ending)
        all &= server->join(deadline);
    return all;
}

int start_server(UnixListener listener, int places, ConnectionHandler handler)
{
    auto server = std::make_shared<Server>(std::move(listener), std::max(places, 1), std::move(handler));
    if (!server->start()) {
        end_servers({server}, 1s);
        return -1;
    }
    Servers &all = servers();
    const std::lock_guard lock(all.mutex);
    all.running.push_back(std::move(server));
    return 0;
}

} // namespace

int qv_ipc_server_init(std::string_view name, int places, ConnectionHandler handler)
{
    std::optional<UnixListener> listener = listen_unix(name);
    return listener ? start_server(std::move(*listener), places, std::move(handler)) : -1;
}

int qv_rpc_server_init(const char *address, int port, int places, ConnectionHandler handler)
{
    UnixListener listener;
    listener.socket = listen_tcp(address, port);
    return listener.socket ? start_server(std::move(listener), places, std::move(handler)) : -1;
}

bool qv_ipc_server_exit(std::chrono::milliseconds patience)
{
    std::vector<std::shared_ptr<Server>> ending;
    {
        Servers &all = servers();
        const std::lock_guard lock(all.mutex);
        ending.swap(all.running);
    }
    return end_servers(ending, patience);
}

} // namespace qvcd

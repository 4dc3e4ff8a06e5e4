#include "platform/server.h"

#include "platform/log.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
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

/// One listening socket and what its slots share. The slots' threads hold it too, so a thread that is left
/// behind at the end still finds everything it touches.
class Server {
  public:
    Server(UnixListener listener, int slots, ConnectionHandler handler)
        : listener_(std::move(listener)), handler_(std::move(handler)),
          slots_(static_cast<std::size_t>(slots))
    {
    }

    static bool start_slots(const std::shared_ptr<Server> &self);
    void stop();
    void join(Deadline deadline);

  private:
    struct Slot {
        std::thread thread;
        int connection = -1; // open socket that stop() shuts down
        bool running = false;
    };

    void run(Slot &slot);
    Fd accept_one();
    bool wait_out_error(int error);
    void serve(Slot &slot, Fd socket);

    const UnixListener listener_; // a TCP server has no path
    const ConnectionHandler handler_;

    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::vector<Slot> slots_;
    bool stopping_ = false;
    bool in_trouble_ = false; // an accept error was logged
};

bool Server::start_slots(const std::shared_ptr<Server> &self)
{
    const std::lock_guard lock(self->mutex_);
    for (Slot &slot : self->slots_) {
        try {
            slot.thread = start_quiet_thread([self, &slot] { self->run(slot); });
            slot.running = true;
        } catch (const std::system_error &error) {
            qv_report_failure(std::string("cannot start a server thread: ") + error.what());
            return false;
        }
    }
    return true;
}

void Server::run(Slot &slot)
{
    while (Fd socket = accept_one())
        serve(slot, std::move(socket));
    const std::lock_guard lock(mutex_);
    slot.running = false;
    changed_.notify_all();
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

void Server::serve(Slot &slot, Fd socket)
{
    {
        const std::lock_guard lock(mutex_);
        if (stopping_)
            return;
        slot.connection = socket.get();
        in_trouble_ = false;
    }
    try {
        ServerConnection connection(socket.get());
        handler_(connection);
        if (connection.flush())
            drain(socket.get());
    } catch (const std::exception &error) {
        qv_log_print(kLogError, "a connection failed: %s\n", error.what());
    }
    // The number may be another's socket as soon as it is closed, so stop() must not see it any more.
    const std::lock_guard lock(mutex_);
    slot.connection = -1;
}

void Server::stop()
{
    if (!listener_.path.empty())
        remove_unix_socket(listener_);
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
    ::shutdown(listener_.socket.get(), SHUT_RDWR);
    for (const Slot &slot : slots_) {
        if (slot.connection >= 0)
            ::shutdown(slot.connection, SHUT_RDWR);
    }
}

void Server::join(Deadline deadline)
{
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, deadline, [this] {
        return std::ranges::none_of(slots_, [](const Slot &slot) { return slot.running; });
    });
    for (Slot &slot : slots_) {
        if (!slot.thread.joinable())
            continue;
        if (slot.running) {
            qv_log_print(kLogWarning, "a connection did not end in time\n");
            slot.thread.detach();
            continue;
        }
        std::thread ended = std::move(slot.thread);
        lock.unlock(); // its last step is to let go of the lock
        ended.join();
        lock.lock();
    }
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

void end_servers(const std::vector<std::shared_ptr<Server>> &ending, std::chrono::milliseconds patience)
{
    const Deadline deadline = deadline_in(patience);
    for (const auto &server : ending)
        server->stop();
    for (const auto &server : ending)
        server->join(deadline);
}

int start_server(UnixListener listener, int slots, ConnectionHandler handler)
{
    auto server = std::make_shared<Server>(std::move(listener), std::max(slots, 1), std::move(handler));
    if (!Server::start_slots(server)) {
        end_servers({server}, 1s);
        return -1;
    }
    Servers &all = servers();
    const std::lock_guard lock(all.mutex);
    all.running.push_back(std::move(server));
    return 0;
}

} // namespace

int qv_ipc_server_init(std::string_view name, int slots, ConnectionHandler handler)
{
    std::optional<UnixListener> listener = listen_unix(name);
    return listener ? start_server(std::move(*listener), slots, std::move(handler)) : -1;
}

int qv_rpc_server_init(const char *address, int port, int slots, ConnectionHandler handler)
{
    UnixListener listener;
    listener.socket = listen_tcp(address, port);
    return listener.socket ? start_server(std::move(listener), slots, std::move(handler)) : -1;
}

void qv_ipc_server_exit(std::chrono::milliseconds patience)
{
    std::vector<std::shared_ptr<Server>> ending;
    {
        Servers &all = servers();
        const std::lock_guard lock(all.mutex);
        ending.swap(all.running);
    }
    end_servers(ending, patience);
}

} // namespace qvcd

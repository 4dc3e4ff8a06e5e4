#include "platform/listeners.h"

#include "platform/log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>

namespace qvcd {

namespace {
constexpr std::chrono::milliseconds kPause{200};
} // namespace

void Listeners::add(Listener listener)
{
    const int socket = listener.socket.socket.get();
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    listeners_.push_back(std::move(listener));
}

bool Listeners::watch(int epoll)
{
    epoll_ = epoll;
    return control(EPOLL_CTL_ADD, EPOLLIN);
}

// A listener's address is told from others by its lowest bit.
bool Listeners::control(int operation, std::uint32_t events)
{
    bool good = true;
    for (Listener &listener : listeners_) {
        epoll_event event{};
        event.events = events;
        event.data.u64 = reinterpret_cast<std::uintptr_t>(&listener) | 1U;
        good = good && ::epoll_ctl(epoll_, operation, listener.socket.socket.get(), &event) == 0;
    }
    return good;
}

Listener *Listeners::of(const epoll_event &event)
{
    if ((event.data.u64 & 1U) == 0)
        return nullptr;
    return reinterpret_cast<Listener *>(event.data.u64 & ~std::uint64_t{1});
}

std::optional<Listeners::Arrival> Listeners::accept(Listener &listener)
{
    for (;;) {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        Fd socket(::accept4(listener.socket.socket.get(),
                            static_cast<sockaddr *>(static_cast<void *>(&address)), &size,
                            SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket) {
            Peer peer = listener.local ? local_peer(socket.get()) : tcp_peer(address);
            return Arrival{std::move(socket), std::move(peer)};
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno != EAGAIN)
            pause(errno);
        return std::nullopt;
    }
}

void Listeners::pause(int error)
{
    if (trouble_.over())
        qv_log_print(kLogError, "cannot accept a connection: %s\n", std::strerror(error));
    control(EPOLL_CTL_MOD, 0);
    resume_at_ = coarse_now() + kPause;
}

void Listeners::resume()
{
    resume_at_ = std::chrono::milliseconds::max();
    control(EPOLL_CTL_MOD, EPOLLIN);
}

void Listeners::remove_names()
{
    for (const Listener &listener : listeners_) {
        if (!listener.socket.path.empty())
            remove_unix_socket(listener.socket);
    }
}

} // namespace qvcd

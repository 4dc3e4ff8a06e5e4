#include "client.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace qvcd::bench {

namespace {

constexpr std::size_t kClients = 10;
constexpr timeval kPatience{20, 0};

template <class Address>
const sockaddr *generic(const Address &address)
{
    const void *raw = &address;
    return static_cast<const sockaddr *>(raw);
}

sockaddr_in ipv4(const std::string &address, const std::string &port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
    inet_pton(AF_INET, address.c_str(), &result.sin_addr);
    return result;
}

} // namespace

double processor_seconds(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
        throw std::runtime_error("no processor time of process " + std::to_string(process));
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Fd try_connect(const std::string &socket, const std::string &source, int flags)
{
    const bool local = socket.starts_with('/');
    Fd fd(::socket(local ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    for (const int way : {SO_RCVTIMEO, SO_SNDTIMEO})
        setsockopt(fd.get(), SOL_SOCKET, way, &kPatience, sizeof kPatience);
    int result = -1;
    if (local) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (socket.size() >= sizeof address.sun_path)
            throw std::runtime_error("too long for a socket: " + socket);
        std::memcpy(address.sun_path, socket.c_str(), socket.size());
        result = connect(fd.get(), generic(address), sizeof address);
    } else {
        const std::size_t colon = socket.find(':');
        const sockaddr_in from = ipv4(source.empty() ? "0.0.0.0" : source, "0");
        const sockaddr_in to = ipv4(socket.substr(0, colon), socket.substr(colon + 1));
        if (bind(fd.get(), generic(from), sizeof from) == 0)
            result = connect(fd.get(), generic(to), sizeof to);
    }
    return result == 0 || errno == EINPROGRESS ? std::move(fd) : Fd();
}

Connection::Connection(const Contender &contender) : Connection(contender, try_connect(contender.socket)) {}

Connection::Connection(const Contender &contender, Fd socket)
    : exact_(contender.exact), socket_(std::move(socket))
{
    if (!socket_)
        throw std::runtime_error("cannot connect to " + contender.socket + ": " + std::strerror(errno));
    if (!contender.hello.empty())
        send(contender.hello);
}

void Connection::send(const std::string &bytes)
{
    if (::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error(std::string("cannot send: ") + std::strerror(errno));
}

bool Connection::receive(const Exchange &exchange)
{
    const std::size_t size = exchange.reply.size();
    if (buffer_.size() < size)
        buffer_.resize(size);
    const ssize_t n = recv(socket_.get(), buffer_.data() + received_, size - received_, 0);
    if (n <= 0)
        throw std::runtime_error((n < 0 ? std::strerror(errno) : "closed") +
                                 (" in the answer to " + exchange.request.substr(0, 100)) + ": " +
                                 buffer_.substr(0, std::min<std::size_t>(received_, 100)));
    received_ += static_cast<std::size_t>(n);
    if (received_ < size)
        return false;
    if (exact_ && std::memcmp(buffer_.data(), exchange.reply.data(), size) != 0)
        throw std::runtime_error("wrong answer to " + exchange.request.substr(0, 100) + ": " +
                                 buffer_.substr(0, std::min<std::size_t>(size, 100)));
    received_ = 0;
    return true;
}

void Connection::ask(const Exchange &exchange)
{
    send(exchange.request);
    while (!receive(exchange)) {
    }
}

void Connection::expect_silence()
{
    char byte = 0;
    if (recv(socket_.get(), &byte, 1, MSG_DONTWAIT) > 0)
        throw std::runtime_error("an answer is longer than expected");
}

std::size_t one_client(Contender &contender, double seconds)
{
    Connection connection(contender);
    std::size_t count = 0;
    for (const auto start = Clock::now(); seconds_since(start) < seconds; ++count)
        connection.ask(contender.next());
    connection.expect_silence();
    return count;
}

std::size_t connection_each(Contender &contender, double seconds)
{
    std::size_t count = 0;
    for (const auto start = Clock::now(); seconds_since(start) < seconds; ++count) {
        Connection connection(contender);
        connection.ask(contender.next());
    }
    return count;
}

std::size_t ten_clients(Contender &contender, double seconds)
{
    const Fd epoll(epoll_create1(EPOLL_CLOEXEC));
    std::vector<std::unique_ptr<Connection>> connections;
    std::vector<const Exchange *> asked(kClients);
    for (std::size_t i = 0; i < kClients; ++i) {
        connections.push_back(std::make_unique<Connection>(contender));
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = i;
        epoll_ctl(epoll.get(), EPOLL_CTL_ADD, connections.back()->fd(), &event);
    }
    const auto start = Clock::now();
    for (std::size_t i = 0; i < kClients; ++i)
        connections[i]->send((asked[i] = &contender.next())->request);
    std::size_t count = 0;
    std::size_t under_way = kClients;
    while (under_way > 0) {
        const bool go_on = seconds_since(start) < seconds;
        epoll_event events[kClients];
        const int ready =
            epoll_wait(epoll.get(), events, kClients, static_cast<int>(kPatience.tv_sec) * 1000);
        if (ready <= 0)
            throw std::runtime_error("no answer for 20 s");
        for (int i = 0; i < ready; ++i) {
            const std::size_t which = events[i].data.u64;
            if (!connections[which]->receive(*asked[which]))
                continue;
            ++count;
            if (go_on)
                connections[which]->send((asked[which] = &contender.next())->request);
            else
                --under_way;
        }
    }
    return count;
}

Sample rate_of(Drive drive, Contender &contender, double seconds)
{
    const auto spent = [&] { return processor_seconds(0) + processor_seconds(contender.process); };
    const auto start = Clock::now();
    const double before = spent();
    const auto count = static_cast<double>(drive(contender, seconds));
    return {count / seconds_since(start), count / (spent() - before)};
}

} // namespace qvcd::bench

// An ordinary client among a thousand that are a nuisance.

#include "requests.h"
#include "rows.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <netinet/in.h>
#include <sched.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>

namespace qvcd::bench {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kPerSource = 60; // the daemon takes 64 connections from one address
constexpr auto kTick = 10ms;
constexpr std::size_t kTicksOfConnection = 25; // of those who come and go: 1,300 a second
constexpr auto kWarmUp = 500ms;
constexpr double kSlices = 20;
constexpr auto kPause = 1ms; // between the questions of the ordinary client

// What the nuisances have done, seen from both processes.
struct Tally {
    std::atomic<std::size_t> connections{0};
    std::atomic<std::size_t> answered_bytes{0};
};

// One third each: connects four times a second; sends a byte of a line every 10 ms; sends as many gets as are
// taken.
class Nuisances {
  public:
    Nuisances(std::string address, std::string batch, std::size_t count, Tally &tally)
        : address_(std::move(address)), batch_(std::move(batch)), peers_(count), tally_(tally)
    {
    }

    [[noreturn]] void run()
    {
        for (std::size_t i = 0; i < peers_.size(); ++i)
            reconnect(i);
        auto next_tick = Clock::now();
        for (;;) {
            epoll_event events[64];
            const int ready = epoll_wait(epoll_.get(), events, std::size(events), 1);
            for (int i = 0; i < ready; ++i)
                serve(events[i].data.u64, events[i].events);
            if (Clock::now() < next_tick)
                continue;
            next_tick = Clock::now() + kTick;
            ++ticks_;
            for (std::size_t i = 0; i < peers_.size(); ++i)
                tick(i);
        }
    }

  private:
    struct Peer {
        Fd socket;
        std::size_t at = 0;
    };
    static bool connects(std::size_t i) { return i % 3 == 0; }
    static bool floods(std::size_t i) { return i % 3 == 2; }

    void reconnect(std::size_t i)
    {
        Peer &peer = peers_[i];
        peer = {};
        peer.socket = try_connect(address_, "127.0.1." + std::to_string(1 + i / kPerSource), SOCK_NONBLOCK);
        epoll_event event{};
        event.events = floods(i) ? EPOLLIN | EPOLLOUT : EPOLLIN;
        event.data.u64 = i;
        epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, peer.socket.get(), &event);
        ++tally_.connections;
    }

    void send_some(Peer &peer, std::size_t most)
    {
        const std::size_t size = std::min(most, batch_.size() - peer.at);
        const ssize_t n = send(peer.socket.get(), batch_.data() + peer.at, size, MSG_NOSIGNAL);
        if (n > 0)
            peer.at += static_cast<std::size_t>(n);
        if (peer.at == batch_.size())
            peer.at = sizeof kHello - 1; // the batch starts with it
    }

    void serve(std::size_t i, std::uint32_t events)
    {
        Peer &peer = peers_[i];
        if (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) {
            static char sink[1 << 16];
            const ssize_t n = recv(peer.socket.get(), sink, sizeof sink, 0);
            if (n > 0)
                tally_.answered_bytes += static_cast<std::size_t>(n);
            else if (n == 0 || errno != EAGAIN)
                reconnect(i);
        } else if (floods(i)) {
            send_some(peer, batch_.size());
        }
    }

    void tick(std::size_t i)
    {
        if (connects(i)) {
            if ((ticks_ + i) % kTicksOfConnection == 0)
                reconnect(i);
        } else if (!floods(i)) {
            send_some(peers_[i], 1);
        }
    }

    std::string address_;
    std::string batch_;
    std::vector<Peer> peers_;
    std::size_t ticks_ = 0;
    Tally &tally_;
    Fd epoll_{epoll_create1(EPOLL_CLOEXEC)};
};

// They have another processor, where there is one: it is not their work that is measured.
void leave_this_processor()
{
    const int here = sched_getcpu();
    cpu_set_t others;
    CPU_ZERO(&others);
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (i != here)
            CPU_SET(i, &others);
    }
    sched_setaffinity(0, sizeof others, &others);
}

// Nuisances in a process of their own.
class Crowd {
  public:
    Crowd(const std::string &address, const std::string &batch, std::size_t count)
    {
        void *shared =
            mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED)
            throw std::runtime_error("no shared memory");
        tally_ = new (shared) Tally;
        child_ = fork();
        if (child_ != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        leave_this_processor();
        Nuisances(address, batch, count, *tally_).run();
    }
    ~Crowd()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        munmap(tally_, sizeof *tally_);
    }
    Crowd(const Crowd &) = delete;
    Crowd &operator=(const Crowd &) = delete;
    const Tally &tally() const { return *tally_; }

  private:
    Tally *tally_ = nullptr;
    pid_t child_ = -1;
};

// Below those that the kernel gives to others' outgoing connections.
std::string free_port()
{
    for (int port = 20000 + getpid() % 10000; port < 32000; ++port) {
        const Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        const void *raw = &address;
        if (bind(fd.get(), static_cast<const sockaddr *>(raw), sizeof address) == 0)
            return std::to_string(port);
    }
    throw std::runtime_error("no free port");
}

// Sorted. Who is turned away has waited for ever.
std::vector<double> milliseconds_of_visits(Contender &contender, double seconds)
{
    std::vector<double> times;
    for (const auto start = Clock::now(); seconds_since(start) < seconds;) {
        const auto asked = Clock::now();
        try {
            Connection(contender).ask(contender.next());
            times.push_back(1e3 * seconds_since(asked));
        } catch (const std::runtime_error &) {
            times.push_back(std::numeric_limits<double>::infinity());
        }
        std::this_thread::sleep_for(kPause);
    }
    std::sort(times.begin(), times.end());
    return times;
}

// A crowd that nobody serves would be no crowd: some have connected anew, some have had answers.
void expect_served(const Tally &tally, std::size_t connections)
{
    const auto until = Clock::now() + 10s;
    while (tally.connections <= connections || tally.answered_bytes == 0) {
        if (Clock::now() > until)
            throw std::runtime_error("the crowd has not been served at all");
        std::this_thread::sleep_for(10ms);
    }
}

} // namespace

void measure_flood(const Settings &settings, const Report &report)
{
    const std::string port = free_port();
    const Daemon daemon(settings, settings.apis[1], {"-P", port});
    std::string batch = kHello;
    for (const Exchange &exchange : make_script(Kind::get, kQvcdLanguage, daemon.model()))
        batch += exchange.request;
    Contender client{
        "qvcd", "127.0.0.1:" + port, {}, make_script(Kind::visit, kQvcdLanguage, daemon.model())};
    Connection(client).ask(client.next()); // it does serve TCP
    const std::string endpoints[] = {daemon.socket(), client.socket};
    const auto p99 = [&](const std::string &socket) {
        client.socket = socket;
        const std::vector<double> times = milliseconds_of_visits(client, kSlices * settings.slice);
        return times[times.size() * 99 / 100];
    };
    const double alone[] = {p99(endpoints[0]), p99(endpoints[1])};
    const Crowd crowd(client.socket, batch.substr(0, batch.find('\n', batch.size() / 10) + 1),
                      settings.connections);
    expect_served(crowd.tally(), settings.connections);
    std::this_thread::sleep_for(kWarmUp);
    for (const std::size_t i : {0, 1}) {
        char beside[64];
        std::snprintf(beside, sizeof beside, "%.2f ms alone", alone[i]);
        report({.name = "p99 among " + std::to_string(settings.connections) + (i == 0 ? ", local" : ", TCP"),
                .value = p99(endpoints[i]),
                .unit = "ms",
                .beside = beside,
                .goal = {Goal::value_at_most, 20}});
    }
}

} // namespace qvcd::bench

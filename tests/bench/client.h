#pragma once

#include "platform/fd.h"

#include <chrono>
#include <limits>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qvcd::bench {

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The first line of a conversation with qvcd.
inline constexpr char kHello[] = "bench 0 0\n";

struct Exchange {
    std::string request;
    std::string reply;
};

/// A server under test and what is asked of it, again and again.
struct Contender {
    std::string name;
    std::string socket; ///< path of a Unix socket, or an IPv4 address and port, "127.0.0.1:80"
    std::string hello;  ///< sent once a connection, not answered
    std::vector<Exchange> script;
    pid_t process = 0; ///< of the server, on this machine
    bool exact = true; ///< are replies what the script says, or only as long?
    std::size_t at = 0;

    const Exchange &next() { return script[at++ % script.size()]; }
};

/// An empty one when nobody listens there. `source`: an IPv4 address to connect from. `flags`: SOCK_NONBLOCK
/// or 0.
Fd try_connect(const std::string &socket, const std::string &source = {}, int flags = 0);

/// A blocking connection. Its functions throw when the server closes it or gives a wrong answer.
class Connection {
  public:
    explicit Connection(const Contender &contender);
    Connection(const Contender &contender, Fd socket);
    void send(const std::string &bytes);
    bool receive(const Exchange &exchange); ///< reads once: is the reply complete?
    void ask(const Exchange &exchange);
    void expect_silence(); ///< throws when more has come than was expected
    int fd() const { return socket_.get(); }

  private:
    bool exact_;
    Fd socket_;
    std::string buffer_;
    std::size_t received_ = 0;
};

// Three ways to ask, each for `seconds`. They return the number of exchanges.
std::size_t one_client(Contender &contender, double seconds);
std::size_t ten_clients(Contender &contender, double seconds); ///< each has one request under way
std::size_t connection_each(Contender &contender, double seconds);
using Drive = std::size_t (*)(Contender &, double);

/// What one round of one contender gave, by the clock and by the processor time that client and server took
/// together, which other work on the machine does not change.
struct Sample {
    double wall = 0;
    double cpu = std::numeric_limits<double>::quiet_NaN(); ///< where it matters
};

/// Of all threads of a process; 0 is this one.
double processor_seconds(pid_t process);

/// Exchanges a second.
Sample rate_of(Drive drive, Contender &contender, double seconds);

} // namespace qvcd::bench

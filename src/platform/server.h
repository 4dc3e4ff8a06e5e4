#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace qvcd {

inline constexpr std::size_t kMaxLineBytes = std::size_t{1}
                                             << 20; // one request line; a longer one ends the connection
inline constexpr std::chrono::seconds kFirstLineTimeout{30};
inline constexpr std::chrono::seconds kIdleTimeout{60};
inline constexpr std::chrono::seconds kSendTimeout{30};

/// A connection's place among those that a server serves at once.
class ServerPlace {
  public:
    virtual void leave() noexcept = 0; ///< somebody else may be served meanwhile
    virtual void take_again() noexcept = 0;

  protected:
    ~ServerPlace() = default;
};

/// One client's connection: lines in, a text stream out. Used by one thread.
///
/// What is written to out() is kept in memory until flush(), so a handler that holds a lock never waits for a
/// client that does not read.
class ServerConnection {
  public:
    /// `socket` stays the caller's. Sending gives up when the client takes nothing for `send_patience`.
    explicit ServerConnection(int socket, std::chrono::milliseconds send_patience = kSendTimeout,
                              ServerPlace *place = nullptr);
    ~ServerConnection();
    ServerConnection(const ServerConnection &) = delete;
    ServerConnection &operator=(const ServerConnection &) = delete;

    enum class Read {
        line,
        end,  ///< end of input, an error, or stop of the server
        idle, ///< nothing came within the time
        bad,  ///< a line of over kMaxLineBytes, or half a line within the time
    };

    /// Reads up to and including the next newline. With a `limit` below kMaxLineBytes at most that many bytes
    /// come, and what is left of a longer line comes with the next call. At the end of input the last line
    /// may lack its newline. After anything but a line nothing more comes.
    Read read_line(std::string &line, std::size_t limit, std::chrono::milliseconds timeout);

    /// True when a whole further line waits in memory: the reply can wait for its answer too.
    bool line_waiting() const;

    /// Where the answer goes. The stream is not locked: one thread at a time.
    std::FILE *out();

    /// Bytes written to out() that were not sent yet.
    std::size_t pending();

    /// Sends what was written to out(). False when the client went away or took nothing for too long; then
    /// nothing can be sent any more, and what is written is dropped. Input can still be read.
    bool flush();

    /// Around what makes the connection's command wait on the outside world: sends what was written to out()
    /// and lets the server serve somebody else in its place.
    void begin_wait() noexcept;
    void end_wait() noexcept;

  private:
    std::string_view unread() const { return {in_.get() + in_begin_, in_end_ - in_begin_}; }
    std::size_t next_piece(std::size_t limit);
    void make_room();
    bool fill(std::chrono::milliseconds timeout, std::chrono::steady_clock::time_point deadline, bool first);
    Read give_up(Read why, const char *reason);
    static ssize_t append_reply(void *connection, const char *bytes, std::size_t size);

    int socket_;
    std::chrono::milliseconds send_patience_;
    ServerPlace *place_;
    std::chrono::milliseconds receive_timeout_{-1}; // what the socket is set to
    bool ended_ = false;                            // no more input from the socket
    bool broken_ = false;                           // no more output to the socket
    std::size_t in_size_;
    std::unique_ptr<char[]> in_;
    std::size_t in_begin_ = 0;   // first byte that was not handed out
    std::size_t in_scanned_ = 0; // no newline between in_begin_ and here
    std::size_t in_end_ = 0;
    std::string reply_;
    std::FILE *out_;
};

/// Serves one connection to its end; called on a thread of the server's. The server closes the socket
/// afterwards.
using ConnectionHandler = std::function<void(ServerConnection &)>;

/// Serves connections of the Unix stream socket "/var/run/qv/<name>.sock" below the sysroot (folder 0755,
/// socket 0660, group "qv" when that group exists), `places` at once, each on a thread; those that wait
/// (begin_wait) do not count, as long as they are no more than 64. A stale socket of a dead server is
/// replaced. Returns 0, or -1 after reporting why (a live server answers there, the folder cannot be made,
/// the path is too long for a socket address).
int qv_ipc_server_init(std::string_view name, int places, ConnectionHandler handler);

/// The same for TCP on `address` (numeric IPv4 or IPv6) and `port`. SO_REUSEADDR is set.
int qv_rpc_server_init(const char *address, int port, int places, ConnectionHandler handler);

/// Stops all servers: no new connection is accepted, open ones are shut down, sockets are removed. Waits up
/// to `patience` for the servers' threads. False when one did not come back: it is left behind.
bool qv_ipc_server_exit(std::chrono::milliseconds patience = std::chrono::seconds{2});

/// The path of the Unix socket of endpoint `name`, below the sysroot. See unix(7): at most 107 bytes fit.
std::string qv_ipc_socket_path(std::string_view name);

/// False when the sysroot is so long that no endpoint of the appliance fits into a socket address.
bool qv_ipc_paths_fit();

} // namespace qvcd

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

namespace qvcd {

inline constexpr std::size_t kMaxLineBytes = std::size_t{1} << 20; // one request line; a longer one ends the connection
inline constexpr std::chrono::seconds kFirstLineTimeout{30};
inline constexpr std::chrono::seconds kIdleTimeout{60};
inline constexpr std::chrono::seconds kSendTimeout{30};

/// One client's connection: lines in, a text stream out. Used by one thread.
///
/// What is written to out() is kept in memory until flush(), so a handler that holds a lock never waits for a
/// client that does not read.
class ServerConnection {
  public:
    explicit ServerConnection(int socket);
    ~ServerConnection();
    ServerConnection(const ServerConnection &) = delete;
    ServerConnection &operator=(const ServerConnection &) = delete;

    enum class Read { line, end };

    /// Reads up to and including the next newline, at most `limit` bytes; what is left of a longer line comes
    /// with the next call. At the end of input the last line may lack its newline. `end`: nothing more comes
    /// (end of input, an error, no whole line within `timeout`, a line of over kMaxLineBytes, or stop of the
    /// server).
    Read read_line(std::string &line, std::size_t limit, std::chrono::milliseconds timeout);

    /// True when a whole further line waits in memory: the reply can wait for its answer too.
    bool line_waiting() const;

    std::FILE *out();

    /// Bytes written to out() that were not sent yet.
    std::size_t pending();

    /// Sends what was written to out(). False when the client went away or did not read for kSendTimeout; then
    /// nothing can be sent any more.
    bool flush();

  private:
    bool fill(std::chrono::milliseconds timeout);

    int socket_;
    bool broken_ = false;
    std::string in_;
    std::size_t in_pos_ = 0;
    std::string reply_;
    std::FILE *out_;
};

/// Serves one connection to its end; called on the slot's own thread. The server closes the socket afterwards.
using ConnectionHandler = std::function<void(ServerConnection &)>;

/// Starts `slots` threads that accept and serve connections of the Unix stream socket "/var/run/qv/<name>.sock"
/// below the sysroot (folder 0755, socket 0660, group "qv" when that group exists). A stale socket of a dead
/// server is replaced. Returns 0, or -1 after reporting why (a live server answers there, the folder cannot be
/// made, the path is too long for a socket address).
int qv_ipc_server_init(std::string_view name, int slots, ConnectionHandler handler);

/// The same for TCP on `address` (numeric IPv4 or IPv6) and `port`. SO_REUSEADDR is set.
int qv_rpc_server_init(const char *address, int port, int slots, ConnectionHandler handler);

/// Stops all servers: no new connection is accepted, open ones are shut down, sockets are removed. Waits up to
/// `patience` for the slots' threads; a thread that does not come back is left behind.
void qv_ipc_server_exit(std::chrono::milliseconds patience = std::chrono::seconds{2});

/// The path of the Unix socket of endpoint `name`, below the sysroot. See unix(7): at most 107 bytes fit.
std::string qv_ipc_socket_path(std::string_view name);

/// False when the sysroot is so long that no endpoint of the appliance fits into a socket address.
bool qv_ipc_paths_fit();

} // namespace qvcd

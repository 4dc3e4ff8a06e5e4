#pragma once

#include "platform/peer.h"
#include "platform/socket.h"
#include "platform/tls.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <string_view>

namespace qvcd {

/// A connection as its handler sees it, on the thread that serves it.
class LineConnection {
  public:
    virtual const Peer &peer() const = 0;

    /// Where replies go. They are sent when the waiting lines have been answered, and before a wait.
    virtual std::FILE *out() = 0;

    /// Around what makes a command wait on the outside world: replies are sent, and other connections are
    /// served meanwhile. Only so many commands that wait run at once (ServerLimits): the first begin_wait()
    /// of a line returns when there is room.
    virtual void begin_wait() noexcept = 0;
    virtual void end_wait() noexcept = 0;

    /// False when nobody could serve the others during a wait, because the system gives no more threads. Then
    /// what takes long should be given up: begin_wait() works, but all wait too.
    virtual bool can_wait() noexcept = 0;

    /// Bytes of replies that were not sent yet.
    virtual std::size_t unsent() noexcept = 0;

    /// To be called, by any thread and as long as one likes, when a handler that listens has news.
    virtual std::function<void()> waker() = 0;

  protected:
    ~LineConnection() = default;
};

/// The conversation on one connection. Its functions are called one at a time, on changing threads.
class LineHandler {
  public:
    virtual ~LineHandler() = default;

    enum class Next { go_on, close };

    /// One line with its newline, or the first max_line_bytes() of a longer one; the last line before the end
    /// of input may lack the newline.
    virtual Next line(std::string_view line, LineConnection &connection) = 0;

    enum class End {
        input,   ///< the client sends no more
        idle,    ///< nothing came in time
        bad,     ///< half a line (or of raw bytes half a piece) in time, or a line of over kMaxLineBytes
        crowded, ///< the connection, idle for long, makes room for another: nothing may wait now
    };

    /// Nothing more comes: what is written now is sent before the connection is closed.
    virtual void end(End why, LineConnection &connection) = 0;

    /// More bytes than this of one line come with the next call. kMaxLineBytes: they end the connection.
    virtual std::size_t max_line_bytes() const { return kMaxLineBytes; }

    /// Bytes that are to come as they are, before the next line; they go to raw(). Asked after every call.
    virtual std::size_t raw_bytes() const { return 0; }

    /// The next of them: kRawPieceBytes, or the last ones. When the input ends before, the conversation does
    /// too (End::bad).
    virtual Next raw(std::string_view, LineConnection &) { return Next::close; }

    /// True while the handler waits for what others have to say, as long as it takes. What the client says
    /// meanwhile comes as ever.
    virtual bool is_listening() const { return false; }

    /// True when news() has something to write. It may not wait, and comes before the next line.
    virtual bool has_news() const { return false; }
    virtual Next news(LineConnection &) { return Next::go_on; }

    /// Bytes that the handler keeps of what came; they count into ServerLimits::held.
    virtual std::size_t held() const { return 0; }

    /// True when the connection may take one of the places kept for administrators. Asked at the connect too
    /// (not where TLS is spoken); who is privileged then does not count into ServerLimits::per_source.
    virtual bool is_privileged() const { return false; }
};

/// Raw bytes come in pieces of this size. Each is held to the time of a line.
inline constexpr std::size_t kRawPieceBytes = std::size_t{64} << 10;

using MakeHandler = std::function<std::unique_ptr<LineHandler>(const Peer &)>;

struct ServerLimits {
    std::size_t connections = 1024; ///< the one that was idle longest makes room for the next
    std::size_t per_source = 64;    ///< of one TCP address or local user; further ones are closed at once
    std::size_t waiting = 64;       ///< commands that wait on the outside world at once; half for one source
    std::size_t reserved = 8;       ///< further places of both kinds, for administrators
    std::size_t held = std::size_t{64} << 20; ///< bytes of input and output; who holds most goes
    std::chrono::milliseconds first_line{std::chrono::seconds{30}}; ///< from the connect to the whole line
    std::chrono::milliseconds idle{std::chrono::seconds{60}}; ///< from the last answer to the next whole line
    std::chrono::milliseconds send{std::chrono::seconds{30}}; ///< without the client taking anything
};

class LineLoop;

/// Serves all connections of all its listeners from one loop (epoll(7)). The thread that reads a line runs
/// its handler; when that begins to wait, another thread takes over the loop. An idle connection costs a
/// descriptor and some hundred bytes.
class LineServer {
  public:
    explicit LineServer(MakeHandler make_handler, ServerLimits limits = {});

    /// stop() with no patience.
    ~LineServer();
    LineServer(const LineServer &) = delete;
    LineServer &operator=(const LineServer &) = delete;

    /// Before start(). The Unix socket's name is removed when the server stops.
    void listen(UnixListener listener);
    /// With `tls` that is all that is spoken there; its handshake counts into ServerLimits::first_line.
    void listen(Fd tcp_socket, std::shared_ptr<const TlsContext> tls = nullptr);

    /// Serves a connected stream socket of this peer like one that came in, in clear. Thread-safe. It is
    /// closed when there is no place.
    void adopt(Fd socket, Peer peer);

    /// Starts the threads. False, after reporting why, when the kernel gives none or no epoll descriptor.
    bool start();

    /// Accepts nothing more, ends all connections, and waits up to `patience` for the handlers that run.
    /// False when one did not come back: its thread and what it uses are left behind.
    bool stop(std::chrono::milliseconds patience);

  private:
    std::shared_ptr<LineLoop> loop_;
};

} // namespace qvcd

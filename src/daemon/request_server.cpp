#include "daemon/request_server.h"

#include "auth/server_login.h"
#include "base/command_lock.h"
#include "base/reply.h"
#include "commands/cmd_parse.h"
#include "platform/server.h"

namespace qvcd {

namespace {

constexpr int kPlaces = 10;
constexpr std::size_t kFirstLineBytes = 255; // what is behind them is the first command line
constexpr std::size_t kFlushBytes = std::size_t{256} << 10;

// What was answered goes out before a command waits: the command may end the daemon or cut the network.
class ConnectionWaits final : public WaitHooks {
  public:
    explicit ConnectionWaits(ServerConnection &connection) : connection_(connection) {}
    void before_waiting() noexcept override { connection_.begin_wait(); }
    void after_waiting() noexcept override { connection_.end_wait(); }

  private:
    ServerConnection &connection_;
};

void close_request(ServerConnection &connection, int result)
{
    reply_printf(connection.out(), "%s%d\n", "@\n", result);
    connection.flush();
}

// One connection: a line that identifies the caller (or asks "?" for a sign of life), command lines up to an
// empty line, then the end mark "@" and the last command's result; 1 for a connection that is ended for its
// behaviour.
void handle_request(ServerConnection &connection)
{
    using Read = ServerConnection::Read;
    std::string line;
    const Read first = connection.read_line(line, kFirstLineBytes, kFirstLineTimeout);
    if (first == Read::idle || first == Read::bad)
        return close_request(connection, 1);
    if (line.starts_with('?')) {
        reply_text(connection.out(), "!\n");
        connection.flush();
        return;
    }
    const unsigned mask = server_login(line); // at the end of input the line is empty
    if (mask == 0)
        return close_request(connection, 1);

    ConnectionWaits waits(connection);
    int result = 0;
    for (;;) {
        const Read read = connection.read_line(line, kMaxLineBytes, kIdleTimeout);
        if (read == Read::bad)
            return close_request(connection, 1);
        if (read != Read::line || line == "\n")
            return close_request(connection, result);
        result = cmd_parse(mask, line, connection.out(), &waits);
        // Answers to waiting lines go out together.
        const bool send_now = !connection.line_waiting() || connection.pending() > kFlushBytes;
        if (send_now && !connection.flush())
            return;
    }
}

} // namespace

int socket_init(int port)
{
    if (qv_ipc_server_init("qvcd", kPlaces, handle_request) != 0)
        return -1;
    if (port != 0)
        qv_rpc_server_init("0.0.0.0", port, kPlaces, handle_request);
    return 0;
}

} // namespace qvcd

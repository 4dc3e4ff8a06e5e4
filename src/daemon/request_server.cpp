#include "daemon/request_server.h"

#include "auth/server_login.h"
#include "base/reply.h"
#include "commands/cmd_parse.h"

namespace qvcd {

namespace {

constexpr std::size_t kFirstLineBytes = 255; // what is behind them is the first command line
constexpr std::size_t kFlushBytes = std::size_t{256} << 10;

int close_request(ServerConnection &connection, int result)
{
    reply_printf(connection.out(), "%s%d\n", "@\n", result);
    connection.flush();
    return result;
}

} // namespace

int handle_request(ServerConnection &connection)
{
    using Read = ServerConnection::Read;
    std::string line;
    connection.read_line(line, kFirstLineBytes, kFirstLineTimeout); // at the end of input the line is empty
    if (line.starts_with('?')) {
        reply_text(connection.out(), "!\n");
        connection.flush();
        return 0;
    }
    const unsigned mask = server_login(line);
    if (mask == 0)
        return close_request(connection, 1);

    int result = 0;
    for (;;) {
        const Read read = connection.read_line(line, kMaxLineBytes, kIdleTimeout);
        if (read == Read::end || line == "\n")
            return close_request(connection, result);
        result = cmd_parse(mask, line, connection.out());
        // Answers to waiting lines go out together.
        const bool send_now = !connection.line_waiting() || connection.pending() > kFlushBytes;
        if (send_now && !connection.flush())
            return result;
    }
}

int socket_init(int port)
{
    qv_ipc_server_init("qvcd", kServerSlots, [](ServerConnection &c) { handle_request(c); });
    if (port != 0)
        qv_rpc_server_init("0.0.0.0", port, kServerSlots, [](ServerConnection &c) { handle_request(c); });
    return 0;
}

int socket_exit()
{
    qv_ipc_server_exit();
    return 0;
}

} // namespace qvcd

#pragma once

#include <chrono>
#include <cstdio>
#include <string_view>

namespace qvcd {

/// A conversation with another daemon's endpoint, as two text streams over one socket.
struct IpcClient {
    std::FILE *in = nullptr;  ///< what the server answers
    std::FILE *out = nullptr; ///< what we say; flush it
};

/// Connects to the endpoint `name` ("/var/run/qv/<name>.sock" below the sysroot). Returns 0, or -1 when
/// nobody listens there. Each read and each write waits at most `timeout`; a read that waited in vain looks
/// like the end of the stream.
///
/// The shared mode greets the server as this system's own daemon expects it on a connection that carries
/// several commands (first line "qvcd 0 0"); the single mode sends nothing of its own.
int qv_ipc_client_connect(std::string_view name, IpcClient &client,
                          std::chrono::milliseconds timeout = std::chrono::seconds{10});
int qv_ipc_client_connect_single(std::string_view name, IpcClient &client,
                                 std::chrono::milliseconds timeout = std::chrono::seconds{10});

/// Closes both streams.
void qv_ipc_client_disconnect(IpcClient &client);

} // namespace qvcd

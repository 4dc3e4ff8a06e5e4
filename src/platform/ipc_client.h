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

/// Connects to the endpoint `name` ("/var/run/qv/<name>.sock" below the sysroot) for one conversation, and
/// says nothing of its own. Returns 0, or -1 when nobody listens there. The conversation is over after
/// `timeout`: reads then find the end of the stream, writes fail.
int qv_ipc_client_connect_single(std::string_view name, IpcClient &client,
                                 std::chrono::milliseconds timeout = std::chrono::seconds{10});

/// Closes both streams.
void qv_ipc_client_disconnect(IpcClient &client);

} // namespace qvcd

#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qvclient/reply.h"
#include "qvclient/wire.h"

namespace qvcd::client {

/// The first line of a connection: who asks.
std::string greeting(const Caller &caller);

/// What is asked over one connection.
struct Request {
    std::string lines;                   ///< commands of the wire, each with its newline
    std::optional<std::string> document; ///< for the first of them
};

/// How far an exchange is; bytes.
struct Progress {
    std::size_t sent = 0;     ///< of the document
    std::size_t all = 0;      ///< the document's
    std::size_t received = 0; ///< of the reply
};

/// Somebody who watches an exchange that may take long.
struct Watcher {
    std::function<void(const Progress &progress)> show; ///< called some times a second
    /// The deadline is so long after the last byte that was sent.
    std::optional<std::chrono::milliseconds> patience = std::nullopt;
};

/// Sends the request, hands the reply lines to `sink` as they come, and returns the result code of the last
/// command. The document is sent when the daemon has said that it takes it. Only the end of the connection
/// tells the end of the reply; when it does not come although all else has come, the connection is lost, and
/// the reply is taken as it is. Throws WireError.
int exchange(Channel channel, const Caller &caller, Request request, Deadline deadline, const LineSink &sink,
             const Watcher &watcher = {});

/// The same for commands without a document; lines without their newlines.
int ask(Channel channel, const Caller &caller, const std::vector<std::string> &lines, Deadline deadline,
        const LineSink &sink);

} // namespace qvcd::client

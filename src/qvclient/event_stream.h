#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qvclient/errors.h"
#include "qvclient/wire.h"

namespace qvcd::client {

/// The daemon does not tell, or not any more, and says why.
struct EventsRefused : WireError {
    using WireError::WireError;
};

/// What happens at the daemon, from the construction on, as far as the caller may see it. Throws WireError as
/// those of wire.h.
class EventStream {
  public:
    /// `filter`: arguments of the command "events" (docs/protocol.md).
    EventStream(const Endpoint &endpoint, const Caller &caller, const std::vector<std::string> &filter,
                std::chrono::milliseconds connect_timeout);

    /// The first line, a JSON object too, which says where the stream begins.
    const std::string &start() const { return start_; }

    int fd() const { return channel_.fd(); }

    /// The next event, a JSON object without its newline; nothing when none has come within `timeout`
    /// (negative: for ever). Throws WireError at the end of the stream, EventsRefused when
    /// the daemon ended it for a reason that will last.
    std::optional<std::string> next(std::chrono::milliseconds timeout);

  private:
    std::optional<std::string> take_line();
    std::string event_in(std::string line) const;
    void receive();

    std::string start_;
    Channel channel_;
    std::string pending_;
    std::size_t looked_at_ = 0; // of it: no newline there
};

} // namespace qvcd::client

#pragma once

#include <optional>
#include <string>

#include "qvclient/wire.h"

namespace qvcd::client {

/// What happens at the local daemon, from the construction on. Throws WireError as those of wire.h.
class EventStream {
  public:
    EventStream(const Endpoint &endpoint, std::chrono::milliseconds connect_timeout);

    int fd() const { return channel_.fd(); }

    /// The next event, a JSON object without its newline; nothing when none has come within `timeout`
    /// (negative: for ever). Throws WireError at the end of the stream.
    std::optional<std::string> next(std::chrono::milliseconds timeout);

  private:
    std::optional<std::string> take_line();
    void receive();

    Channel channel_;
    std::string pending_;
    std::size_t looked_at_ = 0; // of it: no newline there
};

} // namespace qvcd::client

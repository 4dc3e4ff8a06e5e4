#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/fleet/settings.h"

namespace qvcd::client::fleet {

/// What happens on the way to the broker.
struct Happening {
    enum class Kind {
        connected, ///< also after a loss; nothing is subscribed to by then
        lost,      ///< also when it cannot be reached
        subscribed,
        message,
        not_taken, ///< a message of ours went to nobody, or the broker does not let us send it
    };
    Kind kind;
    std::string topic = {}, payload = {}, correlation = {};
    std::vector<std::pair<std::string, std::string>> properties = {};
    int message_id = 0;      ///< not_taken
    std::string reason = {}; ///< lost, not_taken
};

/// A connection to the broker, which comes back by itself. A thread connects, reads and writes; what
/// happens waits to be taken by ours. When much waits, nothing more is read until it is taken.
class Link {
  public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Does not wait for the broker. Throws WireError when what TLS needs cannot be used.
    explicit Link(const Settings &settings);
    /// Waits a second at most: a thread that hangs in the network is left behind.
    ~Link();
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    void subscribe(const std::vector<std::string> &topics, int qos);

    struct Request {
        std::string topic, payload, response_topic, correlation;
        std::vector<std::pair<std::string, std::string>> properties = {};
        std::chrono::seconds expiry{0};
    };
    /// The message's number; nothing when the broker is away.
    std::optional<int> send(const Request &request);

    /// The next thing; nothing at the deadline.
    std::optional<Happening> next(Deadline deadline);

  private:
    struct Callbacks;
    struct Shared;

    std::shared_ptr<Shared> shared_; // with the thread, which may outlive us
    std::thread thread_;
};

} // namespace qvcd::client::fleet

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/fleet/settings.h"

struct mosquitto;

namespace qvcd::client::fleet {

/// What happens on the way to the broker.
struct Happening {
    enum class Kind {
        connected, ///< also after a loss; nothing is subscribed to by then
        lost,
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

/// A connection to the broker, which comes back by itself. A thread reads and writes; what
/// happens waits to be taken by ours.
class Link {
  public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Throws WireError when the broker cannot be reached.
    explicit Link(const Settings &settings);
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
    struct Free {
        void operator()(mosquitto *client) const noexcept;
    };
    void note(Happening happening);
    void run();

    std::unique_ptr<mosquitto, Free> client_;
    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::deque<Happening> happenings_;
    bool stopping_ = false;

    std::thread thread_; // last: uses everything above
};

} // namespace qvcd::client::fleet

#pragma once

#include "fleet/relayed.h"
#include "fleet/seen.h"
#include "platform/coarse_clock.h"
#include "platform/fd.h"
#include "platform/mqtt.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace qvcd {

/// Hands requests of the broker to the daemon's own request server, each over a connection to it, and the
/// replies back. One caller's requests run one after the other, those of several at once.
class Relay : public std::enable_shared_from_this<Relay> {
  public:
    static constexpr std::size_t kAtOnce = 16;       ///< connections
    static constexpr std::size_t kMostWaiting = 256; ///< requests; more are refused
    static constexpr std::size_t kMostOfCaller = 64; ///< of these
    static constexpr std::size_t kMostWaitingBytes = std::size_t{16} << 20;
    static constexpr std::size_t kMostReplyBytes = std::size_t{8} << 20;
    static constexpr std::size_t kPartBytes = std::size_t{128} << 10;

    using Open = std::function<Fd(Peer)>; ///< daemon/request_server.h

    Relay(std::shared_ptr<MqttClient> broker, Open open);

    /// Takes one that came; never waits. Repeated ones are dropped, and those whose reply nobody could get.
    void take(MqttRequest request);

    /// Until stop(); the thread's function.
    void run();
    void stop();

  private:
    struct Conversation {
        Relayed request;
        Fd socket;
        std::size_t sent = 0; ///< of the request's text
        std::string reply = {};
    };

    const char *queue(Relayed &&request);
    std::optional<Relayed> next();
    void begin_next();
    void wait();
    bool talk(Conversation &conversation, short events);
    void answer(const Conversation &conversation);
    void send(MqttReply reply);

    const std::shared_ptr<MqttClient> broker_;
    const Open open_;
    Fd wake_; // eventfd(2)

    std::mutex mutex_; // guards what follows
    Seen seen_;
    std::deque<Relayed> waiting_;
    std::size_t waiting_bytes_ = 0;
    LogPause strays_, losses_;
    bool stopping_ = false;

    std::list<Conversation> conversations_; // the thread's own
};

} // namespace qvcd

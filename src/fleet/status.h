#pragma once

#include "fleet/facts.h"
#include "platform/mqtt.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace qvcd {

class EventQueue;

/// Keeps the appliance's retained status at the broker (docs/protocol.md): looks anew soon after an event,
/// and now and then at what tells of no event.
class Status {
  public:
    explicit Status(std::shared_ptr<MqttClient> broker);

    /// Until stop(); the thread's function.
    void run();
    void stop();

  private:
    struct Bell;

    void listen();
    bool survey();
    bool look();
    void tell(const Facts &facts);

    const std::shared_ptr<MqttClient> broker_;
    const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    const std::shared_ptr<Bell> bell_; // the bus may have it for longer

    // The thread's own.
    FactNames names_;
    std::shared_ptr<EventQueue> events_;
    std::string revision_;
    std::size_t modified_ = 0;
    std::size_t unapplied_ = 0;
    std::string told_; // but for the time
    std::chrono::steady_clock::time_point told_at_{};
};

} // namespace qvcd

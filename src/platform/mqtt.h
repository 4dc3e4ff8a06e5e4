#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// The way of events out of the appliance: an MQTT 3.1.1 client with a thread of its own.

inline constexpr std::size_t kMqttQueueLimit =
    1000; // events kept while the broker is away; newer ones are lost
inline constexpr char kMqttConfigFile[] = "/etc/qv/notify.conf";

struct MqttConfig {
    std::string host; ///< name or address of the broker
    int port = 1883;  ///< 8883 with a cafile
    std::string user;
    std::string password;
    std::string cafile; ///< path on the appliance; without one the connection is not encrypted
    std::string prefix = "qv";
};

/// Reads the text of notify.conf: key=value lines, blanks around both are dropped, lines that begin with "#"
/// are comments. Nothing when no broker is named, or when the port is no number from 1 to 65535 (logged).
/// Unknown keys are logged and passed over; values never are.
std::optional<MqttConfig> parse_mqtt_config(std::string_view text);

/// Publishes events with QoS 1. Connects, and connects again after a loss, by itself: after 1 s, then after
/// twice as long each time, up to 30 s. That the broker is away and that it is back is logged once each.
class MqttClient {
  public:
    /// Starts the thread. Null after logging why: the cafile cannot be used, or memory or the module is
    /// missing. Throws std::system_error when there are no threads left.
    static std::unique_ptr<MqttClient> start(MqttConfig config);

    /// Ends the connection; while the broker is there, events that still wait are given a second.
    virtual ~MqttClient() = default;
    MqttClient(const MqttClient &) = delete;
    MqttClient &operator=(const MqttClient &) = delete;

    /// Queues a message for the topic "<prefix>/<host name>/<event>" and returns at once. Thread-safe.
    virtual void publish(std::string event, std::string payload) = 0;

  protected:
    MqttClient() = default;
};

} // namespace qvcd

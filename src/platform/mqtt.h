#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qvcd {

// The appliance at its broker: an MQTT client with a thread of its own. It publishes events, in MQTT 3.1.1,
// and where notify.conf says so it is one of a fleet, in MQTT 5: docs/protocol.md has the topics.

inline constexpr std::size_t kMqttQueueLimit =
    1000; // messages kept while the broker is away; newer ones are lost
inline constexpr std::size_t kMqttQueueBytes = std::size_t{32} << 20;  // of their payloads, likewise
inline constexpr std::size_t kMqttRequestBytes = std::size_t{5} << 20; // the broker is told to send no more
inline constexpr char kMqttConfigFile[] = "/etc/qv/notify.conf";

struct MqttConfig {
    std::string host; ///< name or address of the broker
    int port = 1883;  ///< 8883 with a cafile
    std::string user;
    std::string password;
    std::string cafile;            ///< path on the appliance; without one the connection is not encrypted
    std::string certfile, keyfile; ///< likewise: of the appliance, where the broker wants a certificate
    std::string prefix = "qv";
    std::string id;        ///< the appliance in the topics; empty: its host name, as it is at the time
    std::string facts;     ///< what the status tells, "label=API,..."; empty: the usual
    bool commands = false; ///< it is one of a fleet; `id` is never empty then
};

/// Reads the text of notify.conf: key=value lines, blanks around both are dropped, lines that begin with "#"
/// are comments. Nothing when no broker is named, or when the port is no number from 1 to 65535 (logged).
/// Commands are off, which is logged, where they would come in clear without "insecure=yes", or the id is no
/// level of a topic. Unknown keys are logged and passed over; values never are.
std::optional<MqttConfig> parse_mqtt_config(std::string_view text);

/// A level of a topic that can be subscribed to by name: 1 to 64 bytes of printable ASCII without "/", "+",
/// "#", "$".
bool is_topic_level(std::string_view text);

/// "<prefix>/fleet/<what>/<id>".
inline std::string fleet_topic(const MqttConfig &config, std::string_view what)
{
    return config.prefix + "/fleet/" + std::string(what) + "/" + config.id;
}

using MqttProperties = std::vector<std::pair<std::string, std::string>>;

/// What came to the request topic. Nothing in it is checked.
struct MqttRequest {
    std::string payload, response_topic, correlation;
    MqttProperties properties;
};

struct MqttReply {
    std::string topic, correlation, payload;
    MqttProperties properties;
};

/// Publishes with QoS 1. Connects, and connects again after a loss, by itself: after 1 s, then after twice as
/// long each time, up to 30 s. That the broker is away and that it is back is logged once each. All is
/// thread-safe.
class MqttClient {
  public:
    /// Starts the thread. Null after logging why: the cafile cannot be used, or memory or the module is
    /// missing. Throws std::system_error when there are no threads left.
    static std::unique_ptr<MqttClient> start(MqttConfig config);

    /// Ends the connection; while the broker is there, messages that still wait are given a second.
    virtual ~MqttClient() = default;
    MqttClient(const MqttClient &) = delete;
    MqttClient &operator=(const MqttClient &) = delete;

    virtual const MqttConfig &config() const = 0;

    /// Queues a message for the topic "<prefix>/<id>/<event>" and returns at once.
    virtual void publish(std::string event, std::string payload) = 0;

    // ---- With config().commands. Nothing connects before join() ----

    /// `request` gets all requests, on the client's thread, and may not wait; until leave().
    virtual void join(std::function<void(MqttRequest)> request) = 0;
    virtual void leave() = 0;

    /// Queues a reply. False: it is lost, too much waits for the broker already.
    virtual bool reply(const MqttReply &reply) = 0;

    /// The retained status from now on, and the one that the broker gives when we are gone: the latter as it
    /// was at the last connect.
    virtual void tell_status(std::string status, std::string farewell) = 0;

  protected:
    MqttClient() = default;
};

} // namespace qvcd

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

class EventQueue;
class MqttClient;

/// Who may know of an event: whose permission word has a bit of each.
struct Audience {
    unsigned any_of = ~0U;
    unsigned and_any_of = ~0U;

    bool holds(unsigned rights) const { return (rights & any_of) != 0 && (rights & and_any_of) != 0; }
};

/// One event as the bus carries it.
struct Notification {
    std::string identity;       ///< publisher, "qvc"
    std::string message_class;  ///< "event"
    std::string event;          ///< "set", "save", ...
    std::string payload;        ///< "key=value"
    std::string public_payload; ///< what leaves the appliance: the payload without what is secret
    std::string topic;          ///< "qvc set"

    // For listeners of this process (platform/event_queue.h).
    Audience audience = {};
    std::optional<std::string> old = std::nullopt; ///< the value before, when that is known and no secret
    std::uint64_t id = 0; ///< counts all events since the start of the process; the bus sets it
    std::int64_t at = 0;  ///< milliseconds since 1970; the bus sets it
};

/// The event as one line of JSON, for those who listen over a LineServer.
std::string stream_line(const Notification &event, bool sees_sessions);

/// Starts the bus: the local socket "/var/run/qv/notify.sock" (one JSON object a line to every subscriber,
/// see docs/platform.md) and, when "/etc/qv/notify.conf" names a broker, the MQTT client (topic "qv/<host
/// name>/<event>", QoS 1, payload public_payload). Keys of the file, as key=value lines: host, port (1883, or
/// 8883 with a cafile), user, password, cafile, prefix (in place of "qv"). Returns 0, or -1 after reporting
/// that the local socket cannot be served.
int qvnotify_start();

/// False when an event would reach nobody: it need not be made.
bool qvnotify_has_listeners();

/// From now on the queue gets the events, as long as somebody holds it. With the id of the last one that it
/// does not get. Nothing when there is no bus, or no place: kMostListeners in all, half of them of one
/// source.
inline constexpr std::size_t kMostListeners = 64;
std::optional<std::uint64_t> qvnotify_listen(const std::shared_ptr<EventQueue> &queue);

/// Queues one event for all subscribers and returns at once. A subscriber whose queue is full is dropped; all
/// are when more events come than can be sent. Each is logged, once a minute at most. Before qvnotify_start()
/// or after qvnotify_stop() nothing happens. Thread-safe.
void qvnotify_send_publish_message(Notification notification);

/// The client of the broker, where notify.conf names one.
std::shared_ptr<MqttClient> qvnotify_broker();

/// Ends the bus; events that are queued for the broker are given a second.
void qvnotify_stop();

} // namespace qvcd

#pragma once

#include <string>

namespace qvcd {

/// One event as the bus carries it.
struct Notification {
    std::string identity;       ///< publisher, "qvc"
    std::string message_class;  ///< "event"
    std::string event;          ///< "set", "save", ...
    std::string payload;        ///< "key=value"
    std::string public_payload; ///< what leaves the appliance: the payload without what is secret
    std::string topic;          ///< "qvc set"
};

/// Starts the bus: the local socket "/var/run/qv/notify.sock" (one JSON object a line to every subscriber,
/// see docs/platform.md) and, when "/etc/qv/notify.conf" names a broker, the MQTT client (topic "qv/<host
/// name>/<event>", QoS 1, payload public_payload). Keys of the file, as key=value lines: host, port (1883, or
/// 8883 with a cafile), user, password, cafile, prefix (in place of "qv"). Returns 0, or -1 after reporting
/// that the local socket cannot be served.
int qvnotify_start();

/// False when an event would reach nobody: it need not be made.
bool qvnotify_has_listeners();

/// Queues one event for all subscribers and returns at once. A subscriber whose queue is full is dropped; all
/// are when more events come than can be sent. Each is logged, once a minute at most. Before qvnotify_start()
/// or after qvnotify_stop() nothing happens. Thread-safe.
void qvnotify_send_publish_message(Notification notification);

/// Ends the bus; events that are queued for the broker are given a second.
void qvnotify_stop();

} // namespace qvcd

#pragma once

#include "platform/notify_bus.h"

#include <optional>
#include <string_view>

namespace qvcd {

inline constexpr char NOTIFY_IDENTITY[] = "qvc";
inline constexpr char NOTIFY_PRIORITY[] = "event";

/// To whom a value reads "*******".
enum class Secret {
    no,      ///< to nobody
    outside, ///< outside the appliance and in the log: session numbers
    yes,     ///< everywhere: passwords
};

struct Event {
    std::string_view name; ///< "set", "save", ...
    std::string_view key, value;
    Secret secret = Secret::no;
    std::optional<std::string_view> old = std::nullopt; ///< the value before; not for secrets
    Audience audience = {};                             ///< of those who listen over the line server
};

/// Publishes it as notify_publish_on() does.
int notify_publish(const Event &event);

/// Publishes one event on the notification bus: payload "key=value", topic text "qvc <event>", each at most
/// 1,023 bytes, and logs it. Returns 0. Never waits.
int notify_publish_on(std::string_view event, std::string_view key, std::string_view value,
                      Secret secret = Secret::no);

} // namespace qvcd

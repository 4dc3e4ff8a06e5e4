#pragma once

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

/// Publishes one event on the notification bus: payload "key=value", topic text "qvc <event>", each at most
/// 1,023 bytes, and logs it. Returns 0. Never waits.
int notify_publish_on(std::string_view event, std::string_view key, std::string_view value,
                      Secret secret = Secret::no);

} // namespace qvcd

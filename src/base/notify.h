#pragma once

#include <string_view>

namespace qvcd {

inline constexpr char NOTIFY_IDENTITY[] = "qvc";
inline constexpr char NOTIFY_PRIORITY[] = "event";

enum class Secret { no, yes };

/// Publishes one event on the notification bus: payload "key=value", topic text "qvc <event>", each at most
/// 1,023 bytes, and logs it. With Secret::yes the value reads "*******" in the log and outside the appliance.
/// Returns 0. Never waits.
int notify_publish_on(std::string_view event, std::string_view key, std::string_view value,
                      Secret secret = Secret::no);

} // namespace qvcd

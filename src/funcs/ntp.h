#pragma once

#include "funcs/write_functions.h"

#include <optional>

namespace qvcd {

// The NTP daemon's configuration: "server <host> minpoll 12 maxpoll <n> iburst", in any line. Its keys are
// "server" and "interval" (hourly, twiceday, daily). Contracts: funcs/write_functions.h.

/// What the first "server" line says, or where there is none the first "pool" line; nothing without both, and
/// for other keys.
std::optional<std::string> ntp_find(std::string_view text, std::string_view key);

bool ntp_holds(std::string_view text, std::string_view key);
const char *ntp_refuses(std::string_view key, std::string_view value);

/// Every "server" line becomes one with the values; without one it is appended.
std::string ntp_replace(std::string_view text, const Values &values);

/// The settings Services.NTP.server and Services.NTP.interval, or their defaults.
std::vector<KeyValue> ntp_settings();

} // namespace qvcd

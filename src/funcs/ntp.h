#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// The NTP daemon's configuration: "server <host> minpoll 12 maxpoll <n> iburst".

/// The server line that the settings Services.NTP.server and Services.NTP.interval ask for, with its newline.
std::string ntp_write_config();

/// A configuration with every line that begins with "server" replaced by that line; without one,
/// "<attr>=<value>" is appended.
std::string ntp_replace_server(std::string_view text, std::string_view attr, std::string_view value);

/// What the first line of a configuration says of "server" or "interval"; nothing for anything else.
std::optional<std::string> ntp_find(std::string_view text, std::string_view attr);

} // namespace qvcd

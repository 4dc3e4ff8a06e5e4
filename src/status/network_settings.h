#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Read functions of the network's configuration. `file` is a path of the appliance. `cached` is not used.

/// `attr`, in any case, is "hostname" (the first word that the board's configuration tool prints; lets go of
/// the command lock), "IFCONFIG_OPTS" (the hardware address among the options of that key in `file`),
/// "CONFIG_NETWORK_IPADDR_DYNAMIC" (that key of `file`: "y" gives "dhcp", others "static") or "ethaddr" (the
/// board's MAC address).
bool network_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// The default gateway from "/proc/net/route", "0.0.0.0" without one. `file` and `attr` are not used. True
/// with `out` left alone when the table is unreadable or empty.
bool gateway_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// The second words of all lines of `file` that begin with `attr`, run together.
bool resolv_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// The hardware address of "eth0" as twelve lower-case hexadecimal digits.
bool discovery_id_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// The dotted gateway of the first route to destination 0 in a text like "/proc/net/route", "0.0.0.0" without
/// one; a malformed row ends the table. Nothing for an empty text.
std::optional<std::string> default_gateway(std::string_view routes);

/// As resolv_rfunc, on a text; nothing when no line begins with `keyword`. Lines are looked at in pieces of
/// 2,047 bytes; at most 1,023 bytes are returned.
std::optional<std::string> resolver_words(std::string_view text, std::string_view keyword);

/// The second word, without one double quote at its end.
std::optional<std::string> second_option(std::string_view options);

} // namespace qvcd

#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function of an interface's state: "up", "down", "present" (a modem without a link) or "unknown" (no
/// such interface). `attr` is the interface, null for "eth0"; `file` is not used. A wireless interface is up
/// when it is associated with an access point (SIOCGIWAP). One request sees one snapshot.
std::optional<std::string> linkstate_rfunc(Request &request, const char *file, const char *attr);

/// False for the patterns that drivers report while there is no access point: six equal bytes 0x00, 0x44 or
/// 0xff.
bool is_access_point(const unsigned char (&mac)[6]);

} // namespace qvcd

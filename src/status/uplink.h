#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function of how far the network reaches: "none", "local" (the modem's, the wireless or the wired link
/// is up), "internet" (System.Configuration.Uplink.maker_url or .public_url answers) or "provider" (it does
/// so once more). `file` and `attr` are not used. Probes once a request; lets go of the command lock for at
/// most 8 s.
std::optional<std::string> uplink_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function of how far the network reaches: "none", "local" (a link is up), "internet" or "provider".
/// `file` and `attr` are not used. Lets go of the command lock; may take 8 s.
std::optional<std::string> uplink_rfunc(Request &request, const char *file, const char *attr);

// The checks of the uplink.

/// The modem's, the wireless or the wired link is up.
bool check_local(Request &request);

/// One of the two addresses System.Configuration.Uplink.maker_url and .public_url answers. Lets go of the
/// command lock.
bool check_internet();

/// The same once more, when the provider is asked for.
bool check_provider();

} // namespace qvcd

#pragma once

#include <string>

namespace qvcd {

/// Read function of how far the network reaches: "none", "local" (a link is up), "internet" or "provider".
/// `file`, `attr` and `cached` are not used. Lets go of the command lock; may take 8 s.
bool uplink_rfunc(const char *file, const char *attr, std::string &out, bool cached);

// The checks of the uplink.

/// The modem's, the wireless or the wired link is up.
bool check_local();

/// One of the two addresses System.Configuration.Uplink.maker_url and .public_url answers. Lets go of the
/// command lock.
bool check_internet();

/// The same once more, when the provider is asked for.
bool check_provider();

} // namespace qvcd

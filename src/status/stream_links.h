#pragma once

#include "base/request.h"
#include "status/netlink.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function that publishes the stream's links of every interface that has an address, as leaves of the
/// settings: "<file>.1.Eth0.rtsp" and, for quick view, "<file>.Quickview.Eth0.rtsp". `file` is the root
/// group's name, `attr` is not used. Links of an interface that went away, or of another mode, vanish. Gives
/// "1" when links were published, else "0".
///
/// A link gets metadata of its own, marked with the attribute "stream_link", where the model has none. One
/// that holds a password has in its "perm" only what the password's API and its own group allow both, is
/// private where that API is, and bears the attribute "secret".
std::optional<std::string> links_rfunc(Request &request, const char *file, const char *attr);

/// The same on a snapshot that a caller hands in; true when links were published.
bool publish_stream_links(Request &request, const std::string &root, const InterfaceSnapshot &network);

} // namespace qvcd

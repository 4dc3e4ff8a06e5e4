#pragma once

#include <string>

namespace qvcd {

/// Read function that publishes the stream's links of every interface that is up as leaves of the settings
/// tree,
/// "<file>.1.Eth0.rtsp" and, for quick view, "<file>.Quickview.Eth0.rtsp", each with a metadata node. `file`
/// is the root node's name. Links of an interface that went down or of another mode vanish. Gives "1" when
/// links were published, else "0". `attr` and `cached` are not used.
bool links_rfunc(const char *file, const char *attr, std::string &out, bool cached);

} // namespace qvcd

#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function that publishes the stream's links of every interface that is up as leaves of the settings
/// tree,
/// "<file>.1.Eth0.rtsp" and, for quick view, "<file>.Quickview.Eth0.rtsp", each with a metadata node. `file`
/// is the root node's name. Links of an interface that went down or of another mode vanish. Gives "1" when
/// links were published, else "0". `attr` is not used.
std::optional<std::string> links_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

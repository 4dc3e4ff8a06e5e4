#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

/// Read function of the largest rate that the encoder's rate control may use, in bits per second, from the
/// settings of rate control, bonding, streaming and network. `file` and `attr` are not used.
std::optional<std::string> transmission_rate_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

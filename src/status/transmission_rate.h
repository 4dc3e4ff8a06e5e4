#pragma once

#include <string>

namespace qvcd {

/// Read function of the largest rate that the encoder's rate control may use, in bits per second, from the
/// settings of rate control, bonding, streaming and network. `file`, `attr` and `cached` are not used.
bool transmission_rate_rfunc(const char *file, const char *attr, std::string &out, bool cached);

} // namespace qvcd

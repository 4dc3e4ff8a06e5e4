#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// Read functions of the return audio channel (IFB), which runs beside the transport stream. `attr` is "port",
// which has no value where the stream's port is none, or "host"; empty for another one. `file` is not used.

std::optional<std::string> ifb_enc_info_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> ifb_dec_info_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> ifb_bond_info_rfunc(Request &request, const char *file, const char *attr);

/// The IFB port beside a transport-stream port: 10 above, or 10 below where that is over 65535.
int ifb_port(int stream_port);

} // namespace qvcd

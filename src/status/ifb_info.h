#pragma once

#include <string>

namespace qvcd {

// Read functions of the return audio channel (IFB), which runs beside the transport stream, ten ports above
// it. `attr` is "port" or "host"; true with `out` left alone for another one. `file` and `cached` are not
// used.

bool ifb_enc_info_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool ifb_dec_info_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool ifb_bond_info_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// The IFB port beside a transport-stream port: 10 above, or 10 below where that is over 65535.
long ifb_port(int stream_port);

} // namespace qvcd

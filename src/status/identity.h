#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// Read functions of the board's identity memory (platform/ident.h). `file` is not used.

/// `attr` is "brandname", "productname", "version", "buildinfo", "serialnumber", "vouts", "vins", "aouts",
/// "ains" or "country" ("none" when the memory names none). One request reads the memory once.
std::optional<std::string> qvi_rfunc(Request &request, const char *file, const char *attr);

/// The hardware version, "unknown" when the memory names none.
std::optional<std::string> hw_version_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

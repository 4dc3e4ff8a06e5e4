#pragma once

#include <string>

namespace qvcd {

// Read functions of the board's identity memory (platform/ident.h). `file` is not used.

/// `attr` is "brandname", "productname", "version", "buildinfo", "serialnumber", "vouts", "vins", "aouts",
/// "ains" or "country" ("none" when the memory names none). The memory is read anew when `cached` is false.
bool qvi_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// The hardware version, "unknown" when the memory names none.
bool hw_version_rfunc(const char *file, const char *attr, std::string &out, bool cached);

} // namespace qvcd

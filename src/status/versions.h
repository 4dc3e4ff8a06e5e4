#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// Read functions of software versions. `file` is a path of the appliance.

/// The firmware version under key `attr` of a key/value file. A release "<version>r<build> <suffix>" is
/// printed for people: "2.1.4r1520 rc3" as "2.1.4rc3", with any other suffix as "2.1.4BETA", without as
/// "2.1.4".
std::optional<std::string> version_rfunc(Request &request, const char *file, const char *attr);

/// The kernel's release, the word behind "Linux version " in the first line of a file like "/proc/version";
/// `attr` must be "Linux version".
std::optional<std::string> linux_version_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

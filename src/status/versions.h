#pragma once

#include "base/request.h"

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Read functions of software versions. `file` is a path of the appliance.

/// The firmware version under key `attr` of a key/value file, as version_text() prints it.
std::optional<std::string> version_rfunc(Request &request, const char *file, const char *attr);

/// The kernel's release from a file like "/proc/version"; `attr` must be "Linux version".
std::optional<std::string> linux_version_rfunc(Request &request, const char *file, const char *attr);

/// A release text "<version>r<build> <suffix>" for people: "2.1.4r1520 rc3" gives "2.1.4rc3", any other
/// suffix "2.1.4BETA", none "2.1.4".
std::string version_text(std::string_view release);

/// The word behind "Linux version " in the first line of a kernel's version text; its first 1,023 bytes are
/// looked at.
std::optional<std::string> kernel_release(std::string_view text);

} // namespace qvcd

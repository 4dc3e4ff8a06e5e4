#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Read functions of software versions. `file` is a path of the appliance. `cached` is not used.

/// The firmware version under key `attr` of a key/value file, as version_text() prints it.
bool version_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// The kernel's release from a file like "/proc/version"; `attr` must be "Linux version".
bool linux_version_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// A release text "<version>r<build> <suffix>" for people: "2.1.4r1520 rc3" gives "2.1.4rc3", any other
/// suffix "2.1.4BETA", none "2.1.4".
std::string version_text(std::string_view release);

/// The word behind "Linux version " in the first line of a kernel's version text; its first 1,023 bytes are
/// looked at.
std::optional<std::string> kernel_release(std::string_view text);

} // namespace qvcd

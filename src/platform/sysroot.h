#pragma once

#include <string>
#include <string_view>

namespace qvcd {

/// The folder that stands for "/" of the appliance: the environment variable QV_SYSROOT, read once,
/// without trailing slashes; empty on a device. Throws as qv_host_file().
const std::string &qv_sysroot();

/// Where the appliance's absolute path `device_path` lies on this machine. "." and ".." are resolved as text
/// first, so the result never leaves the sysroot; a relative path counts from "/". Symbolic links are not
/// looked at.
std::string qv_sysroot_path(std::string_view device_path);

/// The other way round: a path below the sysroot as the appliance knows it, for log lines and replies. Other
/// paths come back as they are.
std::string qv_device_path(std::string_view path);

/// A file's name as it was given, and the path to open.
struct FileName {
    std::string text; ///< for log lines
    std::string path; ///< for open(2)
};

/// A path of the appliance: opened below the sysroot.
FileName qv_device_file(std::string_view device_path);

/// A path from the command line: taken as it stands. A relative one is made absolute at once, because
/// daemonising changes the working folder; that throws std::system_error when the working folder was
/// removed.
FileName qv_host_file(std::string_view path);

} // namespace qvcd

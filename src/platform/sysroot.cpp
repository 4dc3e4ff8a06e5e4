#include "platform/sysroot.h"

#include <cstdlib>
#include <filesystem>

namespace qvcd {

const std::string &qv_sysroot()
{
    static const std::string root = [] {
        const char *value = std::getenv("QV_SYSROOT");
        std::string text = value ? value : "";
        while (!text.empty() && text.back() == '/')
            text.pop_back();
        // A relative root would move with the working folder.
        return text.empty() ? text : std::filesystem::absolute(text).string();
    }();
    return root;
}

std::string qv_sysroot_path(std::string_view device_path)
{
    // In "/.." the dots stand for "/" itself, so normalising an absolute path cannot climb out.
    return qv_sysroot() + (std::filesystem::path("/") / device_path).lexically_normal().string();
}

std::string qv_device_path(std::string_view path)
{
    const std::string &root = qv_sysroot();
    const bool below = path.starts_with(root) && path.substr(root.size()).starts_with('/');
    return std::string(below ? path.substr(root.size()) : path);
}

FileName qv_device_file(std::string_view device_path)
{
    return {std::string(device_path), qv_sysroot_path(device_path)};
}

FileName qv_host_file(std::string_view path)
{
    return {std::string(path), path.empty() ? std::string() : std::filesystem::absolute(path).string()};
}

} // namespace qvcd

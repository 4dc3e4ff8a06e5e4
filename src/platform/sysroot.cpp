#include "platform/sysroot.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <unistd.h>

namespace qvcd {

namespace {

// Programs that must start fast need these, and std::filesystem would bring more code than all else of
// theirs.

struct Free {
    void operator()(char *text) const noexcept { std::free(text); }
};

std::string absolute(std::string_view path)
{
    if (path.starts_with('/'))
        return std::string(path);
    const std::unique_ptr<char, Free> folder(::getcwd(nullptr, 0));
    if (!folder)
        throw std::system_error(errno, std::generic_category(), std::string(path));
    return std::string(folder.get()).append("/").append(path);
}

// "." and ".." are resolved, and one "/" stands before each name. What ends like a folder ends with "/".
void append_resolved(std::string &root, std::string_view path)
{
    const std::size_t start = root.size();
    bool is_folder = true;
    for (std::size_t at = 0; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string_view name = path.substr(at, end - at);
        at = end + 1;
        is_folder = name.empty() || name == "." || name == "..";
        if (!is_folder)
            root.append("/").append(name);
        else if (name == ".." && root.size() > start)
            root.resize(root.rfind('/'));
    }
    if (is_folder)
        root += '/';
}

} // namespace

const std::string &qv_sysroot()
{
    static const std::string root = [] {
        const char *value = std::getenv("QV_SYSROOT");
        std::string text = value ? value : "";
        while (!text.empty() && text.back() == '/')
            text.pop_back();
        // A relative root would move with the working folder.
        return text.empty() ? text : absolute(text);
    }();
    return root;
}

std::string qv_sysroot_path(std::string_view device_path)
{
    std::string path;
    path.reserve(qv_sysroot().size() + device_path.size() + 2);
    path = qv_sysroot();
    append_resolved(path, device_path);
    return path;
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
    return {std::string(path), path.empty() ? std::string() : absolute(path)};
}

} // namespace qvcd

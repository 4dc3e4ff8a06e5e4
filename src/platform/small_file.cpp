#include "platform/small_file.h"

#include "platform/fd.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace qvcd {

std::optional<std::string> read_small_file(const std::string &device_path, std::size_t limit)
{
    const Fd fd(open(qv_sysroot_path(device_path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd)
        return std::nullopt;
    std::string text(limit, '\0');
    std::size_t size = 0;
    while (size < limit) {
        const ssize_t n = read(fd.get(), text.data() + size, limit - size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return std::nullopt;
        if (n == 0)
            break;
        size += static_cast<std::size_t>(n);
    }
    text.resize(size);
    return text;
}

std::string read_first_line(const std::string &device_path)
{
    std::string text = read_small_file(device_path).value_or("");
    text.resize(std::min(text.size(), text.find('\n')));
    return text;
}

} // namespace qvcd

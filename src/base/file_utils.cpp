#include "base/file_utils.h"

#include "base/file_text.h"

#include <unistd.h>

namespace qvcd {

int utils_copy_file(const std::string &src, const std::string &dst)
{
    const auto text = read_file(src);
    return text && replace_file(dst, *text) == 0 ? 0 : 1;
}

int utils_move_file(const std::string &src, const std::string &dst)
{
    const auto text = read_file(src);
    if (!text)
        return 1;
    unlink(src.c_str());
    return replace_file(dst, *text) == 0 ? 0 : 1;
}

} // namespace qvcd

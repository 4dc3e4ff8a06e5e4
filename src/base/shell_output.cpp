#include "base/shell_output.h"

#include "base/limits.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>

namespace qvcd {

bool ShellOutput::open()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    reader_.reset(ends[0]);
    writer_.reset(ends[1]);
    return fcntl(reader_.get(), F_SETFL, O_NONBLOCK) == 0;
}

bool ShellOutput::read_block()
{
    std::array<char, 16384> block;
    const ssize_t n = read(reader_.get(), block.data(), block.size());
    if (n < 0 && errno == EINTR)
        return true;
    if (n == 0)
        reader_.reset();
    if (n <= 0)
        return false;
    text_.append(block.data(), std::min(static_cast<std::size_t>(n), size_ - text_.size()));
    return true;
}

void ShellOutput::read_rest()
{
    while (text_.size() < size_ && reader_ && read_block()) {
    }
}

void ShellOutput::empty()
{
    constexpr int kMostBlocks = 64; // somebody may print faster than we read
    for (int i = 0; i < kMostBlocks && reader_ && read_block(); ++i) {
    }
}

void ShellOutput::set(const std::string &text)
{
    text_ = cut(text, size_);
}

} // namespace qvcd

#include "base/file_text.h"

#include "base/replace_files.h"
#include "base/replacement.h"
#include "platform/fd.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qvcd {

namespace {

FileResult replace(const std::string &path, std::string_view text, unsigned mode, FileChange::Kind kind)
{
    FileSet set;
    set.add({path, std::string(text), mode, kind});
    return set.commit_here().front();
}

} // namespace

FileText read_whole_file(const std::string &path, std::size_t limit)
{
    const Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat st {};
    if (!fd || fstat(fd.get(), &st) != 0)
        return {errno, {}};
    if (S_ISFIFO(st.st_mode))
        return {ESPIPE, {}}; // it would read as empty when nobody writes
    std::string text;
    if (S_ISREG(st.st_mode) && st.st_size > 0)
        text.reserve(std::min(static_cast<std::size_t>(st.st_size), limit));
    std::array<char, 16384> block;
    for (;;) {
        const ssize_t n = read(fd.get(), block.data(), block.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return {errno, {}};
        if (n == 0)
            return {0, std::move(text)};
        if (static_cast<std::size_t>(n) > limit - text.size())
            return {EFBIG, {}};
        text.append(block.data(), static_cast<std::size_t>(n));
    }
}

std::optional<std::string> read_file(const std::string &path, std::size_t limit)
{
    FileText file = read_whole_file(path, limit);
    return file.error ? std::nullopt : std::optional(std::move(file.text));
}

bool file_exists(const std::string &path)
{
    return look_for_file(path) == 0;
}

int look_for_file(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? 0 : errno;
}

FileResult replace_file(const std::string &path, std::string_view text, unsigned mode)
{
    return replace(path, text, mode, FileChange::Kind::plain);
}

FileResult replace_secret_file(const std::string &path, std::string_view text, unsigned mode)
{
    return replace(path, text, mode, FileChange::Kind::secret);
}

FileResult remove_file(const std::string &path)
{
    if (unlink(path.c_str()) != 0)
        return {errno, false};
    return {flush_folder(folder_of(path)), true};
}

} // namespace qvcd

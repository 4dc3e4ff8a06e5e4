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

int replace(const std::string &path, std::string_view text, unsigned mode, FileChange::Kind kind)
{
    FileSet set;
    set.add({path, std::string(text), mode, kind});
    return set.commit_here().front();
}

// What the file holds; ENODEV: that is nothing to go back to.
FileText old_text(const std::string &path)
{
    struct stat st {};
    const bool is_device = stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode);
    return is_device ? FileText{ENODEV, {}} : read_whole_file(path);
}

// Callers take a failure for "nothing has changed", so a new text that got its name without being flushed
// goes again.
int replace_one(const std::string &path, std::string_view text, unsigned mode, FileChange::Kind kind)
{
    const FileText old = old_text(path);
    const int error = replace(path, text, mode, kind);
    if (!error || (old.error && !old.missing()) || old.text == text || read_file(path) != text)
        return error;
    if (old.missing())
        remove_file(path);
    else
        replace(path, old.text, mode, kind);
    return error;
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
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

int replace_file(const std::string &path, std::string_view text, unsigned mode)
{
    return replace_one(path, text, mode, FileChange::Kind::plain);
}

int replace_secret_file(const std::string &path, std::string_view text, unsigned mode)
{
    return replace_one(path, text, mode, FileChange::Kind::secret);
}

int remove_file(const std::string &path)
{
    return unlink(path.c_str()) == 0 ? flush_folder(folder_of(path)) : errno;
}

} // namespace qvcd

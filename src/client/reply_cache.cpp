#include "client/reply_cache.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/fd.h"

namespace qvcd::client {

namespace {

constexpr std::time_t kKeptSeconds = 5;

std::string cache_folder()
{
    const char *runtime = std::getenv("XDG_RUNTIME_DIR");
    return runtime && runtime[0] == '/' ? std::string(runtime) + "/qvc"
                                        : "/tmp/qvc-" + std::to_string(geteuid());
}

// Somebody else may have made a folder of that name in /tmp: it must be a real folder, ours, and closed.
bool make_safe_folder(const std::string &folder)
{
    mkdir(folder.c_str(), 0700);
    struct stat status {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & 077) == 0;
}

// Keys hold blanks and slashes; the file repeats its key, so two keys of one name only miss.
std::string cache_file(const std::string &key)
{
    return cache_folder() + "/" + std::to_string(std::hash<std::string>{}(key));
}

bool is_fresh(int fd)
{
    struct stat status {};
    const std::time_t now = std::time(nullptr);
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
           status.st_mtime <= now && now - status.st_mtime < kKeptSeconds;
}

bool write_all(int fd, const std::string &text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written <= 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace

std::optional<std::string> cached_text(const std::string &key)
{
    if (!make_safe_folder(cache_folder()))
        return std::nullopt;
    const Fd file(open(cache_file(key).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file || !is_fresh(file.get()))
        return std::nullopt;
    std::string text;
    std::array<char, 65536> buffer;
    for (ssize_t got = 0; (got = read(file.get(), buffer.data(), buffer.size())) > 0;)
        text.append(buffer.data(), static_cast<std::size_t>(got));
    if (!text.starts_with(key + "\n"))
        return std::nullopt;
    return text.substr(key.size() + 1);
}

void cache_text(const std::string &key, const std::string &text)
{
    if (!make_safe_folder(cache_folder()))
        return;
    const std::string file = cache_file(key);
    const std::string fresh = file + "." + std::to_string(getpid());
    const Fd fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd)
        return;
    if (!write_all(fd.get(), key + "\n" + text) || rename(fresh.c_str(), file.c_str()) != 0)
        unlink(fresh.c_str());
}

} // namespace qvcd::client

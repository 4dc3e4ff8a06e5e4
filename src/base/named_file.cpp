// Files in folders that others may write to: found and replaced step by step, so that nobody can put a link
// into the way between a look and a write.

#include "base/file_text.h"
#include "base/replacement.h"

#include <array>
#include <cerrno>
#include <climits>
#include <unistd.h>

namespace qvcd {

namespace {

constexpr int kMaxLinks = 40;

// Nobody but us and root puts names into this folder.
bool is_trusted(const struct stat &folder)
{
    return (folder.st_uid == 0 || folder.st_uid == geteuid()) && (folder.st_mode & S_IWOTH) == 0 &&
           ((folder.st_mode & S_IWGRP) == 0 || folder.st_gid == 0 || folder.st_gid == getegid());
}

// A file's folder, and its name there.
struct Place {
    Fd folder;
    std::string name;
    bool trusted = false;
    int error = 0;
};

std::string read_link(int folder, const std::string &name)
{
    std::array<char, PATH_MAX> link{};
    const ssize_t n = readlinkat(folder, name.c_str(), link.data(), link.size());
    return n <= 0 ? std::string() : std::string(link.data(), static_cast<std::size_t>(n));
}

class Walk {
  public:
    explicit Walk(const std::string &path) : rest_(path) {}

    Place find()
    {
        if (!rest_.starts_with('/'))
            rest_.insert(0, "./");
        while (!place_.error && step()) {
        }
        return std::move(place_);
    }

  private:
    void enter(const char *name, int flags)
    {
        Fd next(openat(place_.folder ? place_.folder.get() : AT_FDCWD, name,
                       O_PATH | O_DIRECTORY | O_CLOEXEC | flags));
        struct stat st {};
        if (!next || fstat(next.get(), &st) != 0)
            place_.error = errno;
        else
            place_.trusted = is_trusted(st);
        place_.folder = std::move(next);
    }

    // Takes one name off the way; false at the last one.
    bool step()
    {
        if (rest_.starts_with('/'))
            enter("/", 0);
        rest_.erase(0, rest_.find_first_not_of('/'));
        const std::string name = rest_.substr(0, rest_.find('/'));
        rest_.erase(0, name.size());
        const bool last = rest_.find_first_not_of('/') == std::string::npos;
        rest_.erase(0, rest_.find_first_not_of('/'));
        // A link is followed only where nobody else can have put it.
        if (const std::string link = place_.trusted ? read_link(place_.folder.get(), name) : "";
            !link.empty()) {
            rest_.insert(0, link + "/");
            place_.error = ++links_ > kMaxLinks ? ELOOP : 0;
            return true;
        }
        if (!last) {
            enter(name.c_str(), O_NOFOLLOW);
            return true;
        }
        place_.name = name;
        if (name.empty() || name == "." || name == "..")
            place_.error = EISDIR;
        return false;
    }

    std::string rest_;
    Place place_;
    int links_ = 0;
};

// 0 when the file may be replaced; `st` is what stands there.
int look_at(const Place &place, struct stat &st, bool &exists)
{
    exists = fstatat(place.folder.get(), place.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
    if (!exists)
        return errno == ENOENT ? 0 : errno;
    if (S_ISDIR(st.st_mode))
        return EISDIR;
    // Where others put names, a link or a file of theirs makes way for ours; anything else is not ours to
    // write.
    return place.trusted || S_ISREG(st.st_mode) || S_ISLNK(st.st_mode) ? 0 : EPERM;
}

int write_device(const Place &place, std::string_view text)
{
    const Fd fd(openat(place.folder.get(), place.name.c_str(),
                       O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return fd ? write_all(fd.get(), text) : errno;
}

int put_new_file(const Place &place, std::string_view text, unsigned mode)
{
    remove_left_overs(place.folder.get());
    NewFile file(place.folder.get());
    if (const int error = file.make())
        return error;
    int error = fchmod(file.fd(), mode) == 0 ? write_all(file.fd(), text) : errno;
    if (!error)
        error = file.flush();
    if (!error)
        error = file.rename_to(place.name);
    if (error)
        return error;
    const Fd names(openat(place.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return names ? flush_file(names.get()) : errno;
}

} // namespace

int replace_named_file(const std::string &path, std::string_view text, unsigned mode)
{
    const Place place = Walk(path).find();
    struct stat st {};
    bool exists = false;
    if (const int error = place.error ? place.error : look_at(place, st, exists))
        return error;
    const bool is_file = exists && S_ISREG(st.st_mode);
    if (exists && !is_file && !S_ISLNK(st.st_mode))
        return write_device(place, text);
    mode &= ~kUmask;
    return put_new_file(place, text, is_file && st.st_uid == geteuid() ? mode & st.st_mode : mode);
}

} // namespace qvcd

#include "base/fresh_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qvcd {

FreshFile::FreshFile(const std::string &target)
    : target_(target), path_(target.substr(0, target.rfind('/') + 1) + ".qvcd-XXXXXX")
{
    fd_.reset(mkostemp(path_.data(), O_CLOEXEC));
    if (fd_)
        return;
    error_ = errno;
    path_.clear();
}

FreshFile::~FreshFile()
{
    if (!path_.empty())
        unlink(path_.c_str());
}

int FreshFile::write(std::string_view text)
{
    if (!fd_)
        return error_;
    // A file of ours with a second name may be a link that somebody else made.
    struct stat old {};
    const bool is_ours = lstat(target_.c_str(), &old) == 0 && S_ISREG(old.st_mode) &&
                         old.st_uid == geteuid() && old.st_nlink == 1;
    if (is_ours && fchown(fd_.get(), static_cast<uid_t>(-1), old.st_gid) == 0)
        fchmod(fd_.get(), old.st_mode & 0777U);
    while (!text.empty()) {
        const ssize_t n = ::write(fd_.get(), text.data(), text.size());
        if (n < 0 && errno != EINTR)
            return errno;
        text.remove_prefix(n < 0 ? 0 : static_cast<std::size_t>(n));
    }
    return 0;
}

int FreshFile::take_name()
{
    if (path_.empty())
        return error_;
    struct stat old {};
    if (lstat(target_.c_str(), &old) == 0 && !S_ISREG(old.st_mode) && !S_ISLNK(old.st_mode))
        return EEXIST;
    if (rename(path_.c_str(), target_.c_str()) != 0)
        return errno;
    path_.clear();
    return 0;
}

} // namespace qvcd

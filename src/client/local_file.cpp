#include "client/local_file.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "client/errors.h"
#include "platform/fd.h"

namespace qvcd::client {

namespace {

std::string shown(const std::string &name, const char *stream)
{
    return name == "-" ? stream : name;
}

[[noreturn]] void fail(const std::string &what)
{
    throw UsageError(what + ": " + std::generic_category().message(errno));
}

void write_all_to(int fd, std::string_view text, const std::string &name)
{
    while (!text.empty()) {
        const ssize_t n = write(fd, text.data(), text.size());
        if (n < 0 && errno != EINTR)
            fail("cannot write " + name);
        text.remove_prefix(static_cast<std::size_t>(n < 0 ? 0 : n));
    }
}

// Removes what did not become the file.
class NewFile {
  public:
    explicit NewFile(const std::string &target)
        : name_(target + ".XXXXXX"), fd_(mkostemp(name_.data(), O_CLOEXEC))
    {
        if (!fd_)
            fail("cannot write " + target);
    }
    ~NewFile()
    {
        if (!name_.empty())
            unlink(name_.c_str());
    }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;

    int fd() const { return fd_.get(); }
    void become(const std::string &target)
    {
        if (fsync(fd_.get()) != 0 || rename(name_.c_str(), target.c_str()) != 0)
            fail("cannot write " + target);
        name_.clear();
    }

  private:
    std::string name_;
    Fd fd_;
};

} // namespace

std::string read_local_file(const std::string &name, std::size_t limit)
{
    const std::string what = shown(name, "standard input");
    const Fd file(name == "-" ? dup(STDIN_FILENO) : open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        fail("cannot read " + what);
    std::string text;
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t n = read(file.get(), buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            fail("cannot read " + what);
        if (n == 0)
            return text;
        text.append(buffer.data(), static_cast<std::size_t>(n));
        if (text.size() > limit)
            throw UsageError(what + " is larger than " + std::to_string(limit >> 20U) + " MiB");
    }
}

void write_local_file(const std::string &name, std::string_view text)
{
    if (name == "-") {
        write_all_to(STDOUT_FILENO, text, "standard output");
        return;
    }
    struct stat st {};
    const bool exists = stat(name.c_str(), &st) == 0;
    if (exists && !S_ISREG(st.st_mode)) {
        const Fd file(open(name.c_str(), O_WRONLY | O_CLOEXEC));
        if (!file)
            fail("cannot write " + name);
        write_all_to(file.get(), text, name);
        return;
    }
    std::array<char, PATH_MAX> real; // through a link, onto what it leads to
    const std::string target = exists && realpath(name.c_str(), real.data()) ? real.data() : name;
    NewFile file(target);
    if (exists)
        fchmod(file.fd(), st.st_mode & 0777U);
    write_all_to(file.fd(), text, name);
    file.become(target);
}

} // namespace qvcd::client

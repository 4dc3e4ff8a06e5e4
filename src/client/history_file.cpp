#include "client/history_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/private_file.h"
#include "client/short_question.h"
#include "platform/fd.h"

namespace qvcd::client {

namespace {

std::string history_file()
{
    const std::string folder = state_folder();
    return folder.empty() || !make_private_folder(folder) ? "" : folder + "/history";
}

} // namespace

std::vector<std::string> load_history()
{
    const std::string file = history_file();
    std::vector<std::string> lines = lines_of(file.empty() ? "" : read_private_file(file).value_or(""));
    if (lines.size() > kHistoryLines)
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kHistoryLines));
    return lines;
}

// From time to time it is made short again; a line that another shell adds at that moment may be lost.
void add_to_history(const std::string &line)
{
    constexpr off_t kLongEnough = off_t{1} << 18;
    const std::string file = history_file();
    if (file.empty())
        return;
    const Fd fd(
        open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
    if (!fd || fchmod(fd.get(), 0600) != 0)
        return;
    write_all(fd.get(), line + "\n");
    if (lseek(fd.get(), 0, SEEK_END) < kLongEnough)
        return;
    std::string kept;
    for (const std::string &one : load_history())
        kept += one + "\n";
    replace_private_file(file, kept);
}

} // namespace qvcd::client

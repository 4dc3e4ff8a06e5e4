#include "funcs/working_copies.h"

#include "base/file_text.h"
#include "funcs/write_functions.h"
#include "platform/sysroot.h"

#include <chrono>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace qvcd {

WorkingCopies *WorkingCopies::current_ = nullptr;

int WorkingCopies::store(const std::string &path) const
{
    const auto copy = texts_.find(path);
    return copy == texts_.end() ? 0 : write_scratch_file(qv_sysroot_path(path), copy->second);
}

std::string *WorkingCopies::find(const std::string &path)
{
    if (!current_)
        return nullptr;
    const auto copy = current_->texts_.find(path);
    return copy == current_->texts_.end() ? nullptr : &copy->second;
}

void tidy_working_copies()
{
    namespace fs = std::filesystem;
    const fs::path folder = qv_sysroot_path(kScratchFolder);
    mkdir(folder.c_str(), 0777);
    const auto long_ago = fs::file_time_type::clock::now() - std::chrono::minutes(1);
    std::error_code error; // a folder of somebody else's is not ours to tidy
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const auto written = entry->last_write_time(error);
        if (!error && entry->symlink_status(error).type() == fs::file_type::regular && written < long_ago)
            fs::remove(entry->path(), error);
        error.clear();
    }
}

} // namespace qvcd

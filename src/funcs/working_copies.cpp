#include "funcs/working_copies.h"

#include "base/file_text.h"
#include "platform/sysroot.h"

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

} // namespace qvcd

#include "auth/session_list.h"

#include "base/fresh_file.h"
#include "platform/log.h"
#include "platform/sysroot.h"

#include <cstring>
#include <string>

namespace qvcd {

namespace {

constexpr char kListFile[] = "/tmp/current_sessions";

bool in_trouble = false; // writing failed and was logged

} // namespace

void session_write_list(std::span<const int> numbers)
{
    std::string text;
    for (const int n : numbers)
        text += std::to_string(n) + '\n';
    FreshFile file(qv_sysroot_path(kListFile));
    int error = file.write(text);
    if (!error)
        error = file.take_name();
    if (error && !in_trouble)
        qv_log_print(kLogError, "Can not write %s: %s\n", kListFile, std::strerror(error));
    in_trouble = error != 0;
}

} // namespace qvcd

#include "commands/script_hook.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "base/shell.h"
#include "platform/sysroot.h"

namespace qvcd {

int cmd_script_hook(const char *script, const Args &argv)
{
    const std::string path = qv_sysroot_path(script);
    if (!file_exists(path))
        return 0;
    std::string command = shell_quote(path);
    for (const std::string &arg : argv) {
        const std::string word = " " + shell_quote(arg);
        if (command.size() + word.size() > kMaxPathBytes)
            break; // half a quoted word would not be one
        command += word;
    }
    shell_run(command, kShellApplyLimit, path);
    return 0;
}

} // namespace qvcd

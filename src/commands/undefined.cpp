#include "commands/undefined.h"

#include "platform/log.h"

namespace qvcd {

namespace {

int command_undefined(Request &, Args &argv, std::FILE *)
{
    qv_log_print(kLogError, "Undefined command\n");
    for (const std::string &arg : argv)
        qv_log_print(kLogInfo, " arg: %s\n", arg.c_str());
    return 0;
}

} // namespace

const CommandRecord undefinedRecord = {
    .name = "undefined",
    .handler = command_undefined,
    .summary = "Undefined command",
    .description = "This command should never be called.  It's used to check for errors",
};

} // namespace qvcd

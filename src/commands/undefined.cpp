#include "commands/undefined.h"

#include "platform/log.h"

namespace qvcd {

namespace {

// The arguments may be those of a misspelt login: they are not for the log.
int command_undefined(Request &, Args &, std::FILE *)
{
    qv_log_print(kLogError, "Undefined command\n");
    return 0;
}

} // namespace

const CommandRecord undefinedRecord = {
    .name = "undefined",
    .handler = command_undefined,
    .summary = "Undefined command",
    .description = "This command should never be called.  It's used to check for errors",
    .secret_from = 0,
};

} // namespace qvcd

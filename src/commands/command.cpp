#include "commands/command.h"

#include "base/lookup.h"
#include "base/reply.h"
#include "store/meta.h"

namespace qvcd {

bool is_for_caller(const Request &request)
{
    return request.caller.stranger || (request.mask & kLevel1Bits) != 0;
}

int run_subcommand(const CommandRecord &record, Request &request, Args &argv, std::FILE *out, SubResult keep)
{
    if (!is_for_caller(request))
        return 0;
    if (argv.empty() || argv.front() == "help") {
        subcmd_help(record, out);
        return 0;
    }
    const SubCommand &row = row_or_first(record.sub_commands, argv.front());
    const int result = row.handler(request, argv, out);
    return keep == SubResult::hand_on ? result : 0;
}

void subcmd_help(const CommandRecord &record, std::FILE *out)
{
    reply_printf(out, "%s: %s\n", record.name, "This menu");
    for (const SubCommand &sub : record.sub_commands) {
        if (sub.listed)
            reply_printf(out, "%s.%s: %s\n", record.name, sub.name, sub.description);
    }
}

} // namespace qvcd

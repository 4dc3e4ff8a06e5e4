#include "commands/command.h"

#include "base/reply.h"
#include "commands/cmd_table.h"
#include "store/meta.h"

namespace qvcd {

int run_subcommand(const CommandRecord &record, unsigned mask, Args &argv, std::FILE *out, SubResult keep)
{
    if ((mask & kLevel1Bits) == 0)
        return 0;
    if (argv.empty() || argv.front() == "help") {
        subcmd_help(record, out);
        return 0;
    }
    const SubCommand &row = record.sub_commands[subcmd_find_row(record, argv.front())];
    const int result = row.handler(mask, argv, out);
    return keep == SubResult::hand_on ? result : 0;
}

void subcmd_help(const CommandRecord &record, std::FILE *out)
{
    reply_printf(out, "%s: %s\n", record.name, "This menu");
    for (const SubCommand &sub : record.sub_commands)
        reply_printf(out, "%s.%s: %s\n", record.name, sub.name, sub.description);
}

} // namespace qvcd

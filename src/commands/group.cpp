#include "commands/group.h"

#include "auth/user.h"
#include "base/reply.h"
#include "base/text.h"
#include "store/database.h"
#include "store/hdfutils.h"

namespace qvcd {

namespace {

int group_list(Request &request, Args &argv, std::FILE *out);
int group_add(Request &request, Args &argv, std::FILE *out);
int group_rem(Request &request, Args &argv, std::FILE *out);
int command_group(Request &request, Args &argv, std::FILE *out);

constexpr SubCommand kSubCommands[] = {
    {"list", group_list, "List all groups"},
    {"add", group_add, "Add a group"},
    {"rem", group_rem, "Remove a group"},
};

} // namespace

const CommandRecord groupRecord = {
    .name = "group",
    .handler = command_group,
    .summary = "Command to operate on the user groups",
    .synopsis = "group.list",
    .errors =
        "##group add currently not supported#, ##group rem currently not supported#: groups change only "
        "through the user file or \"user.import\".",
    .description =
        "Lists the groups of users with their permission masks. A mask has four hexadecimal digits, one "
        "a level, with 4 for read, 2 for write and 1 for apply. What a group has beyond what it may hold is "
        "left "
        "out: group 0 may hold all four levels, group "
        "1 the lower three, group 2 the lower two, other groups the lowest.",
    .sub_commands = kSubCommands,
};

namespace {

int command_group(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(groupRecord, request, argv, out, SubResult::zero);
}

int group_list(Request &, Args &, std::FILE *out)
{
    if (!out)
        return 0;
    Tree groups = Tree::make();
    groups.root().merge("", groupDB.root());
    for (Node group : groups.find("Group")) {
        const std::string perm(group.get("perm").value_or(""));
        const unsigned counts = user_group_mask(group.name());
        if (!perm.empty() && c_hex16(perm) != counts)
            group.set("perm", mask_text(counts));
    }
    hdfutils_dump(groups.root(), "", out);
    return 0;
}

int group_add(Request &, Args &, std::FILE *out)
{
    reply_line(out, "##group add currently not supported#");
    return 0;
}

int group_rem(Request &, Args &, std::FILE *out)
{
    reply_line(out, "##group rem currently not supported#");
    return 0;
}

} // namespace

} // namespace qvcd

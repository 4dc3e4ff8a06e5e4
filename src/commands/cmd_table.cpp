// All commands. To add one: a CommandRecord in commands/<family>.{h,cpp}, a row here, tests, and its texts,
// which "help.cmd" prints. Row 0 must stay "undefined": every unknown name maps to it.

#include "commands/cmd_table.h"

#include "commands/apply.h"
#include "commands/browse.h"
#include "commands/change.h"
#include "commands/command_times.h"
#include "commands/commit.h"
#include "commands/defaults.h"
#include "commands/describe.h"
#include "commands/document.h"
#include "commands/events.h"
#include "commands/export.h"
#include "commands/failures.h"
#include "commands/get.h"
#include "commands/group.h"
#include "commands/help.h"
#include "commands/history.h"
#include "commands/import.h"
#include "commands/insert.h"
#include "commands/menu.h"
#include "commands/meta.h"
#include "commands/pages.h"
#include "commands/pending.h"
#include "commands/plan.h"
#include "commands/preset.h"
#include "commands/profile.h"
#include "commands/save.h"
#include "commands/session.h"
#include "commands/set.h"
#include "commands/stats.h"
#include "commands/undefined.h"
#include "commands/user.h"
#include "commands/version.h"
#include "platform/log.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr CommandRow cmdMap[] = {
    {0, &undefinedRecord},  {1, &helpRecord},     {1, &getRecord},          {1, &getiRecord},
    {0, &getvRecord},       {0, &getdRecord},     {0, &getdvRecord},        {1, &setRecord},
    {0, &setsRecord},       {0, &setaRecord},     {0, &setnRecord},         {1, &applyRecord},
    {1, &saveRecord},       {1, &modifyRecord},   {1, &updateRecord},       {1, &introspectRecord},
    {1, &browseRecord},     {0, &presetRecord},   {1, &profileRecord},      {0, &addRecord},
    {0, &removeRecord},     {1, &revertRecord},   {0, &reloadRecord},       {0, &exportRecord},
    {0, &importRecord},     {1, &checkmodRecord}, {1, &checkappRecord},     {1, &checkdefRecord},
    {0, &metaRecord},       {0, &metavRecord},    {0, &userRecord},         {0, &groupRecord},
    {0, &menuRecord},       {1, &loginRecord},    {1, &logoutRecord},       {0, &sessionsRecord},
    {0, &getSessionRecord}, {1, &defaultRecord},  {1, &factoryResetRecord}, {0, &insertRecord},
    {0, &deleteRecord},     {1, &planRecord},     {1, &diffRecord},         {1, &commitRecord},
    {1, &confirmRecord},    {1, &abortRecord},    {1, &historyRecord},      {1, &rollbackRecord},
    {0, &documentRecord},   {1, &failuresRecord}, {1, &versionRecord},      {1, &eventsRecord},
    {1, &describeRecord},   {1, &pagesRecord},    {1, &pendingRecord},      {1, &statsRecord},
};

} // namespace

std::span<const CommandRow> cmd_map()
{
    return cmdMap;
}

int cmd_create_cmdmap_hdf()
{
    for (std::size_t i = 0; i < std::size(cmdMap); ++i) {
        const CommandRecord &record = *cmdMap[i].record;
        qv_log_print(kLogTrace, "adding %s to cmdmap %zu\n", record.name, i);
        if (record.init) {
            qv_log_print(kLogTrace, "calling init for %s\n", record.name);
            record.init();
        }
        if (!record.sub_commands.empty())
            qv_log_print(kLogTrace, "cmd %s created with %zu sub functions\n", record.name,
                         record.sub_commands.size());
    }
    qv_log_print(kLogTrace, "cmd map created with %zu functions\n", std::size(cmdMap));
    return 0;
}

int cmd_destroy_cmdmap_hdf()
{
    for (const CommandRow &row : cmdMap) {
        const CommandRecord &record = *row.record;
        if (!record.sub_commands.empty())
            qv_log_print(kLogTrace, "cmd %s cleanup\n", record.name);
        if (record.exit)
            record.exit();
    }
    return 0;
}

std::size_t cmd_find_row(std::string_view name)
{
    const auto *row = std::ranges::find(
        cmdMap, name, [](const CommandRow &r) -> std::string_view { return r.record->name; });
    return row == std::end(cmdMap) ? 0 : static_cast<std::size_t>(row - cmdMap);
}

std::span<CommandTimes> command_times()
{
    static CommandTimes times[std::size(cmdMap)];
    return times;
}

} // namespace qvcd

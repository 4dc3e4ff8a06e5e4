// All commands. To add one: a CommandRecord in commands/<family>.{h,cpp}, a row here, tests, and its texts,
// which "help.cmd" prints. Row 0 must stay "undefined": every unknown name maps to it.

#include "commands/cmd_table.h"

#include "base/command_door.h"
#include "commands/apply.h"
#include "commands/browse.h"
#include "commands/change.h"
#include "commands/defaults.h"
#include "commands/export.h"
#include "commands/get.h"
#include "commands/group.h"
#include "commands/help.h"
#include "commands/import.h"
#include "commands/menu.h"
#include "commands/meta.h"
#include "commands/preset.h"
#include "commands/profile.h"
#include "commands/save.h"
#include "commands/session.h"
#include "commands/set.h"
#include "commands/undefined.h"
#include "commands/user.h"
#include "funcs/func_map.h"
#include "platform/log.h"

#include <map>

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
    {0, &deleteRecord},
};

NameIndex cmdMapHDF;
std::map<const CommandRecord *, NameIndex> sub_maps; // of the records that have sub-commands

void subcmd_create_menumap_hdf(const CommandRecord &record)
{
    NameIndex &map = sub_maps[&record];
    map.create();
    int number = 0;
    for (const SubCommand &sub : record.sub_commands)
        map.add(sub.name, number++);
    qv_log_print(kLogTrace, "cmd %s created with %d sub functions\n", record.name, number);
}

void subcmd_destroy_menumap_hdf(const CommandRecord &record)
{
    if (sub_maps.erase(&record))
        qv_log_print(kLogTrace, "cmd %s cleanup\n", record.name);
}

int run_by_name(unsigned mask, std::string_view name, Args args, std::FILE *out)
{
    return cmdMap[cmd_find_row(name)].record->handler(mask, args, out);
}

} // namespace

std::span<const CommandRow> cmd_map()
{
    return cmdMap;
}

int cmd_create_cmdmap_hdf()
{
    cmdMapHDF.create();
    set_command_door(run_by_name);
    int number = 0;
    for (const CommandRow &row : cmdMap) {
        const CommandRecord &record = *row.record;
        qv_log_print(kLogTrace, "adding %s to cmdmap %d\n", record.name, number);
        cmdMapHDF.add(record.name, number++);
        if (record.init) {
            qv_log_print(kLogTrace, "calling init for %s\n", record.name);
            record.init();
        }
        if (!record.sub_commands.empty())
            subcmd_create_menumap_hdf(record);
    }
    qv_log_print(kLogTrace, "cmd map created with %d functions\n", number);
    return 0;
}

int cmd_destroy_cmdmap_hdf()
{
    for (const CommandRow &row : cmdMap) {
        subcmd_destroy_menumap_hdf(*row.record);
        if (row.record->exit)
            row.record->exit();
    }
    set_command_door(nullptr);
    cmdMapHDF.destroy();
    return 0;
}

std::size_t cmd_find_row(std::string_view name)
{
    return cmdMapHDF.row(name);
}

std::size_t subcmd_find_row(const CommandRecord &record, std::string_view name)
{
    const auto map = sub_maps.find(&record);
    return map == sub_maps.end() ? 0 : map->second.row(name);
}

} // namespace qvcd

#pragma once

#include "commands/command.h"

#include <span>
#include <string_view>

namespace qvcd {

struct CommandRow {
    int listed; ///< 1: help lists it for everybody; 0: only for callers with a level-0 bit
    const CommandRecord *record;
};

/// All commands; row 0 is "undefined".
std::span<const CommandRow> cmd_map();

/// Calls the init functions, or the exit functions, of all commands.
int cmd_create_cmdmap_hdf();
int cmd_destroy_cmdmap_hdf();

/// The row of a command word; 0 when there is none.
std::size_t cmd_find_row(std::string_view name);

/// Its record.
inline const CommandRecord &cmd_find(std::string_view name)
{
    return *cmd_map()[cmd_find_row(name)].record;
}

} // namespace qvcd

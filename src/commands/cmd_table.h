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

/// Builds the index, calls the init functions and opens the door of base/command_door.h.
int cmd_create_cmdmap_hdf();
int cmd_destroy_cmdmap_hdf();

/// The row of a command word, 0 when there is none.
std::size_t cmd_find_row(std::string_view name);

/// The row of a sub-command word in the record's sub-commands, 0 when there is none.
std::size_t subcmd_find_row(const CommandRecord &record, std::string_view name);

} // namespace qvcd

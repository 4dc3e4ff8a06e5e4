#pragma once

#include "commands/command.h"

namespace qvcd {

// Temporary APIs, which live until they are deleted or the daemon ends.

extern const CommandRecord insertRecord;
extern const CommandRecord deleteRecord;

} // namespace qvcd

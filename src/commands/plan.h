#pragma once

#include "commands/command.h"

namespace qvcd {

// What a change would do, and what has changed.

extern const CommandRecord planRecord;
extern const CommandRecord diffRecord;

} // namespace qvcd

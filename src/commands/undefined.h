#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord undefinedRecord; // row 0: every unknown command word

} // namespace qvcd

#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord statsRecord;

} // namespace qvcd

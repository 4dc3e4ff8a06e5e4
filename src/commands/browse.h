#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord browseRecord;

} // namespace qvcd

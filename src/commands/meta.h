#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord metaRecord;
extern const CommandRecord metavRecord;

} // namespace qvcd

#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord helpRecord;

} // namespace qvcd

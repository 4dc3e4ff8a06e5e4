#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord describeRecord;

} // namespace qvcd

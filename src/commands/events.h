#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord eventsRecord;

} // namespace qvcd

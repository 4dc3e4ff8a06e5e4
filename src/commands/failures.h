#pragma once

#include "base/failures.h"
#include "base/request.h"
#include "commands/command.h"

namespace qvcd {

extern const CommandRecord failuresRecord;

/// True when the caller may apply an API that asked for the action: he would have been told himself.
bool may_see(const Request &request, const Failure &failure);

/// "time first-API: action: how it failed"
std::string line_of(const Failure &failure);

} // namespace qvcd

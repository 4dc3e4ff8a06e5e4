#pragma once

#include "commands/command.h"

namespace qvcd {

extern const CommandRecord loginRecord;
extern const CommandRecord logoutRecord;
extern const CommandRecord sessionsRecord;
extern const CommandRecord getSessionRecord;

/// Prints "session=<number>" and the fields of the session that the first argument names; 1 and an error line
/// when there is none. With session checking off it prints "session=1" for every argument.
int command_get_session(Request &request, Args &argv, std::FILE *out);

} // namespace qvcd

#pragma once

#include "change/assignment.h"
#include "commands/command.h"
#include "store/api.h"

#include <string>

namespace qvcd {

extern const CommandRecord setRecord;
extern const CommandRecord setsRecord;
extern const CommandRecord setaRecord;
extern const CommandRecord setnRecord;

/// Which change flags a set raises.
enum class SetMode {
    set,  ///< "mod" and, when the caller may apply and there is something to apply, "noapp"
    sets, ///< "mod" only
    seta, ///< "noapp" only
    none, ///< no flag; only import asks for it
};

// Arguments are "name=value" with URL-escaped values. 0 when every one succeeded.
int command_set(Request &request, Args &argv, std::FILE *out);
int command_sets(Request &request, Args &argv, std::FILE *out);
int command_seta(Request &request, Args &argv, std::FILE *out);

/// Sets one API to a value; the reply is the new value or what is wrong with it. A dynamic API is written to
/// the system at once, for which the command lock may be let go. 0, or 1 when it was refused.
int set_param(Request &request, Api &api, const std::string &value, std::FILE *out, SetMode mode);

/// Raises the flags of an API whose value is about to change. No apply flag where the caller may not apply,
/// or there is nothing to apply.
void raise_flags(const Request &request, Api &api, SetMode mode);

} // namespace qvcd

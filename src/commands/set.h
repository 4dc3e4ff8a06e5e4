#pragma once

#include "commands/command.h"

#include <string>

namespace qvcd {

extern const CommandRecord setRecord;
extern const CommandRecord setsRecord;
extern const CommandRecord setaRecord;
extern const CommandRecord setnRecord;
extern const CommandRecord insertRecord;
extern const CommandRecord deleteRecord;

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
int command_setn(Request &request, Args &argv,
                 std::FILE *out); ///< no flags: not what the command "setn" runs

/// Sets one API to a URL-escaped value; the reply is the new value or what is wrong with it.
int set_param(Request &request, const std::string &api, const std::string &escaped, std::FILE *out,
              SetMode mode);

} // namespace qvcd

#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// Read functions that belong to no device area; contract: funcs/read_map.h. Those that take a key/value file
// know the format of base/kv_file.h.

std::optional<std::string> undefined_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> na_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> hidden_rfunc(Request &request, const char *file, const char *attr);
/// Eight asterisks when the file holds a value for the key.
std::optional<std::string> password_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> no_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> zero_rfunc(Request &request, const char *file, const char *attr);
/// The current value of the API named by `attr`; that of a password only for who may read it there.
std::optional<std::string> model_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> kv_rfunc(Request &request, const char *file, const char *attr);
std::optional<std::string> quoted_rfunc(Request &request, const char *file, const char *attr);
/// The whole answer of the IPC server `file` to the message `attr`, as far as it comes within 10 s; "n/a"
/// when there is none. Lets go of the command lock.
std::optional<std::string> ipc_rfunc(Request &request, const char *file, const char *attr);
/// `attr` is "<message> <field>": the value of the answer's line "<field>=<value>". Empty without
/// such a line.
std::optional<std::string> ipc_attr_rfunc(Request &request, const char *file, const char *attr);
/// The first word that the shell command `attr` (at most 255 bytes of it) prints.
std::optional<std::string> syscall_rfunc(Request &request, const char *file, const char *attr);
/// "server" or "interval" from the NTP daemon's configuration.
std::optional<std::string> ntp_rfunc(Request &request, const char *file, const char *attr);

/// Why the file of kv_rfunc, quoted_rfunc or ntp_rfunc could not be read, as an errno; 0: it could, or there
/// is none. The caller of a reader sets it to 0 before.
int &read_error(Request &request);

} // namespace qvcd

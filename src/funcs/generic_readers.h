#pragma once

#include <string>

namespace qvcd {

// Read functions that belong to no device area; contract: funcs/read_map.h. Those that take a key/value file
// know the format of base/kv_file.h.

bool undefined_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool na_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool hidden_rfunc(const char *file, const char *attr, std::string &out, bool cached);
/// Eight asterisks when the file holds a value for the key, or when the caller's `out` is not empty.
bool password_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool no_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool zero_rfunc(const char *file, const char *attr, std::string &out, bool cached);
/// The current value of the API named by `attr`.
bool model_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool kv_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool quoted_rfunc(const char *file, const char *attr, std::string &out, bool cached);
bool eeprom_rfunc(const char *file, const char *attr, std::string &out, bool cached);
/// The whole answer of the IPC server `file` to the message `attr`; "n/a" when there is none.
bool ipc_rfunc(const char *file, const char *attr, std::string &out, bool cached);
/// `attr` is "<message> <field>": the value of the answer's line "<field>=<value>". Without such a line `out`
/// is left alone.
bool ipc_attr_rfunc(const char *file, const char *attr, std::string &out, bool cached);
/// The first word that the shell command `attr` (at most 255 bytes of it) prints.
bool syscall_rfunc(const char *file, const char *attr, std::string &out, bool cached);
/// "server" or "interval" from the first line of the NTP daemon's configuration.
bool ntp_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// Sends a message and an empty line to the IPC server `server` and collects the answer's lines up to the end
/// mark
/// "@" or the end of the stream, at most 4,096 bytes. `single`: a one-shot connection. Returns 0, or -2 when
/// the server cannot be reached. Waits: the command lock is let go.
int send_ipc_msg(const std::string &server, const std::string &message, std::string &reply, bool single);

} // namespace qvcd

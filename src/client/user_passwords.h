#pragma once

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// True for `user.passwd USER`, and with "-" in place of the password: it is still to be asked for.
bool lacks_password(const Words &words);

/// Runs it: the password is typed twice without echo, or is the first line of standard input when that is no
/// terminal, and is not shown. Returns the exit status.
int set_user_password(const Options &options, const Words &words);

/// `user.add USER GROUP` before a person: asks for the password of a user who was added.
int add_user(const Options &options, const Words &words);

} // namespace qvcd::client

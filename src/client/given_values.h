#pragma once

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// `words` with the values that they only speak of: of NAME=@FILE what is in the file, of NAME=- what comes
/// from standard input, both without one newline at the end; of NAME=?, when that is a password, what is
/// typed twice without echo. Where the value itself is "?", "-" or begins with "@", a backslash stands in
/// front; so it does in front of backslashes that stand there. Commands that set nothing stay as they are.
/// Throws UsageError.
Words with_given_values(const Options &options, Words words);

} // namespace qvcd::client

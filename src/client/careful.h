#pragma once

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// Takes "-y" off a command that destroys what took work. True when the command is to be run: it is no such
/// one, "-y" says so, nobody typed it (client/person.h), or who did has said yes.
bool is_wanted(const Options &options, Words &words);

} // namespace qvcd::client

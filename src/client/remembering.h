#pragma once

#include <string>
#include <vector>

#include "client/options.h"
#include "client/shell_line.h"

namespace qvcd::client {

enum class Remember {
    nowhere, ///< it holds a password or a session number
    here,    ///< it may hold one: until the shell ends
    for_good
};

/// How a line of the shell, whose names count from `level`, may be remembered. Asks the daemon whether values
/// are passwords.
Remember how_to_remember(const Options &options, const std::string &level, const std::vector<Step> &steps);

} // namespace qvcd::client

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/options.h"

namespace qvcd::client {

enum class Kind {
    open,    ///< everybody may see it
    missing, ///< there is no such setting
    unknown, ///< the daemon does not say, or not in time
    password,
};

/// What the settings of these whole names hold, asked of the daemon: the last of these kinds that one has.
Kind kind_of(const Options &options, const std::vector<std::string> &names);

} // namespace qvcd::client

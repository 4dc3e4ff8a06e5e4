#pragma once

#include "base/request.h"

#include <cstdio>
#include <string>
#include <vector>

namespace qvcd {

/// Arguments of a command: the sub-command first when there is one, still URL-escaped.
using Args = std::vector<std::string>;

/// A command: whose it is and for what rights, its arguments, and where the reply lines go (null: nowhere).
/// Returns 0 for success.
using CommandHandler = int (*)(Request &request, Args &argv, std::FILE *out);

inline constexpr unsigned kInternalMask = 0x0f00; // commands that run other commands

} // namespace qvcd

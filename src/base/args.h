#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace qvcd {

/// Arguments of a command: the sub-command first when there is one, still URL-escaped.
using Args = std::vector<std::string>;

/// A command: the caller's permission mask, its arguments, and where the reply lines go (null: nowhere).
/// Returns 0 for success.
using CommandHandler = int (*)(unsigned mask, Args &argv, std::FILE *out);

inline constexpr unsigned kInternalMask = 0x0f00; // commands that run other commands

} // namespace qvcd

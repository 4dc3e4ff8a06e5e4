#pragma once

#include <string>
#include <vector>

#include "client/command.h"
#include "client/line_filter.h"

namespace qvcd::client {

/// A command of a line, and what its output goes through: `get Network | match ip | count`.
struct Step {
    Words words;
    std::vector<LineFilter> filters;
};

/// The commands of a line of the shell, which ";" parts; none for a blank line and for a comment ("#" in
/// front). Throws UsageError when any part of it is wrong: a quote that is left open, a ";" or "|" with
/// nothing before or behind it, a filter that there is not.
std::vector<Step> parse_shell_line(const std::string &line);

} // namespace qvcd::client

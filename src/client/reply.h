#pragma once

#include <string>
#include <string_view>

#include "qvclient/reply.h"

namespace qvcd::client {

/// Prints each line on standard output.
void print_line(std::string_view line);

/// From now on print_line() shows stars in place of the value of this name, which was typed unseen, also
/// where a refusal "NAME=##...#: VALUE" repeats it.
void hide_value_of(const std::string &name);

/// For a reply of which everything is kept: passes its lines on to `sink`, and throws WireError for one that
/// has no end, at some 64 MiB.
LineSink within_limit(LineSink sink);

/// `line` as print_line() shows it.
std::string shown_line(std::string_view line);

} // namespace qvcd::client

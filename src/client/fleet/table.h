#pragma once

#include <string>
#include <vector>

namespace qvcd::client::fleet {

using Row = std::vector<std::string>;

/// Prints rows, the first of which is a heading: in columns on a terminal, and when they are wider than it,
/// some of the columns behind the first one at a time; else with tabs between.
void print_table(const std::vector<Row> &rows);

} // namespace qvcd::client::fleet

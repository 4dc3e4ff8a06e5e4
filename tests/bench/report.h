#pragma once

#include "rows.h"

#include <cstdio>

namespace qvcd::bench {

/// Heading, with what else the machine has to do, and lines of a plain table.
void print_heading(std::FILE *out);
void print_line(const Line &line, std::FILE *out);

/// A JSON array of objects.
void print_json(const std::vector<Line> &lines, std::FILE *out);

} // namespace qvcd::bench

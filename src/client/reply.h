#pragma once

#include <string_view>

#include "qvclient/reply.h"

namespace qvcd::client {

/// Prints each line on standard output.
void print_line(std::string_view line);

} // namespace qvcd::client

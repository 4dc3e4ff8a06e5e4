#pragma once

#include <string>

namespace qvcd {

/// A text in a printf(3) format; empty when it cannot be formatted. For paddings and fractions.
std::string print_text(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace qvcd

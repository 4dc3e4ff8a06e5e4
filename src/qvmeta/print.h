#pragma once

#include "check/source.h"

#include <cstdio>
#include <string>

namespace qvcd {

/// A line with a blank in place of each control character.
void print_line(std::FILE *out, const std::string &text);

/// Reads a file for those who need all of it. False after printing what is wrong with its text.
bool load_whole(Source &source, const std::string &path);

} // namespace qvcd

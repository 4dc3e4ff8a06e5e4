#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>

namespace qvcd {

/// Writes a text in lines that each begin with `prefix`. A text of fewer than `width` bytes is one line. In a
/// longer one a line ends behind a newline, and behind the first blank that makes it longer than `width`, so
/// words are never split and lines are longer than `width` by the rest of a word. Blanks at the start of a
/// line that was ended so are dropped. Every line ends with a newline. A null stream swallows it all.
void wordwrap(std::FILE *out, std::string_view prefix, std::size_t width, std::string_view text);

} // namespace qvcd

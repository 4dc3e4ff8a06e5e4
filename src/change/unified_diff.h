#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace qvcd {

/// What of a line is shown: its text without the line end, and the mark in front of it, ' ', '-' or '+'.
using LineView = std::function<std::string(char mark, std::string_view text)>;

/// The hunks ("@@ -a,b +c,d @@" and what follows) that make one text of the other, with three lines of
/// context, in the unified format of diff(1); empty for equal texts. A last line without a newline is
/// followed by diff's remark. Texts of more than 4 MiB together are not compared, which a line says.
std::string unified_diff(std::string_view before, std::string_view after, const LineView &show);

} // namespace qvcd

#pragma once

#include <string>
#include <string_view>

namespace qvcd::client {

/// `text` without what a terminal would obey: control characters, those of ISO 6429 above 0x7f (U+0080 to
/// U+009F) among them, stand as "\u001b", which is right in JSON, too. Blanks, tabs, newlines and colours
/// stay.
std::string harmless(std::string_view text);

/// `text` as one line of plain text: control characters stand as above, and so do newlines, tabs and what
/// colours begin with. For what another machine says about itself in lines that are ours.
std::string one_line(std::string_view text);

/// harmless(), where standard output was a terminal when the program began; else `text`.
std::string for_output(std::string_view text);

/// The same for standard error.
std::string for_errors(std::string_view text);

} // namespace qvcd::client

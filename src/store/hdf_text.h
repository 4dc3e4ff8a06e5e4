#pragma once

#include "store/tree.h"

#include <string>
#include <string_view>

namespace qvcd {

// The text of a tree: "name = value" and "name {" ... "}" lines, "name << MARK" ... "MARK" blocks for values
// of several lines, "#" comments. Names are dotted, of letters, digits and "_", and relative to the group
// around them. Blanks around names and values do not count.

/// Reads a text into a node, merging with what is below it; with no node it is only looked at. What stands
/// before a mistake is taken. Returns what is wrong, with the line: "line 7: ..."; empty when nothing is.
/// Includes, links and attributes of the format are mistakes here, as are more levels than kMaxTreeDepth and
/// NUL bytes.
std::string hdf_parse(std::string_view text, Node into);

/// The children of `node` as a text, two blanks a level. What holds no value leaves no trace. A value that
/// begins or ends with blanks does not come back from it as it was, and one of several lines only with a line
/// end behind the last.
std::string hdf_text(Node node);

/// A block's mark that does not stand in its value.
std::string hdf_block_mark(std::string_view value);

} // namespace qvcd

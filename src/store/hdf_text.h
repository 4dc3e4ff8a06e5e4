#pragma once

#include "store/tree.h"

#include <string>
#include <string_view>

namespace qvcd {

// The text of a tree: "name = value" and "name {" ... "}" lines, "name << MARK" ... "MARK" blocks for values
// of several lines, "#" comments. Names are dotted, of letters, digits and "_", and relative to the group
// around them. Blanks around names and values do not count.

/// What is wrong with a text. Lines count from 1.
struct HdfMistake {
    std::size_t line;
    std::string what;
    std::string group; ///< whose closing brace is missing, as far as indentation tells; else empty
    bool is_brace;     ///< that is what is wrong
};

/// Who wants to know where things stand in a text.
class HdfListener {
  public:
    virtual ~HdfListener() = default;
    virtual void opened(Node group, std::size_t line) = 0; ///< also for a group that was there
    virtual void given(Node node, std::size_t line) = 0;   ///< the line of the value, the last one of a block
    /// True to go on behind the mistake. What follows a missing brace is at the end anyway.
    virtual bool mistaken(const HdfMistake &mistake) = 0;
};

/// Reads a text into a node, merging with what is below it; with no node it is only looked at. What stands
/// before a mistake is taken. Returns what is wrong, with the line: "line 7: ..."; empty when nothing is, or
/// the listener went on behind it. Includes, links and attributes of the format are mistakes here, as are
/// more levels than kMaxTreeDepth, names of over kMaxNameBytes and NUL bytes.
std::string hdf_parse(std::string_view text, Node into, HdfListener *listener = nullptr);

/// The children of `node` as a text, two blanks a level. What holds no value leaves no trace. A value that
/// begins or ends with blanks does not come back from it as it was, and one of several lines only with a line
/// end behind the last.
std::string hdf_text(Node node);

/// A block's mark that does not stand in its value.
std::string hdf_block_mark(std::string_view value);

} // namespace qvcd

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qvcd {

/// What a look at an HDF text found before the library may parse it: its parser follows includes, recurses
/// without a limit, and takes unbalanced braces for a complete file.
struct HdfScan {
    std::size_t good_bytes = 0; ///< up to here the text is safe to parse
    std::string error;          ///< "line 7: ..."; empty when the whole text is good
};

/// Scans a text: names of letters, digits, "_" and single dots; "name = value", "name {" with nothing behind
/// the brace, "}", "name << MARK" blocks, "#" comments.
HdfScan hdf_scan(std::string_view text);

} // namespace qvcd

#pragma once

#include <string>
#include <string_view>

namespace qvcd {

int cmd_create_wfuncmap_hdf(); ///< logs the map's size; 0

/// Writes the value where the API's "write", "file" and "attr" say, and to its "shadow" file first. Returns
/// the write function's result, 0 for success.
int wfuncmap_write(std::string_view api, std::string_view value);

/// Writes one API's value from a source file into a destination file of the caller's choice.
int wfuncmap_cached_write(const std::string &source, const std::string &destination, std::string_view api,
                          std::string_view value);

} // namespace qvcd

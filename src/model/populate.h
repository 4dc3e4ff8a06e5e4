#pragma once

#include "base/request.h"
#include "platform/sysroot.h"

#include <string>
#include <string_view>

namespace qvcd {

/// Reads a metadata file into metaDB, merging, and expands all templates. 1 after logging what is wrong;
/// metaDB then keeps what stood before the error, unexpanded.
int hdfdb_load_meta_file(Request &request, const FileName &file);

/// Fills hdfDB for every API below the metadata node `name` (empty: for all), from the system or from
/// defaults. May let go of the command lock.
int hdfdb_populate(Request &request, std::string_view name = {});

} // namespace qvcd

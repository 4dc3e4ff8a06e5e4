#pragma once

#include "platform/sysroot.h"

#include <string>
#include <string_view>

namespace qvcd {

/// Reads a metadata file into metaDB, merging, and expands all templates. 1 after logging what is wrong;
/// metaDB then keeps what stood before the error, unexpanded.
int hdfdb_load_meta_file(const FileName &file);

/// Fills hdfDB for every API below the metadata node `name` (empty: for all), from the system or from
/// defaults, then clears the read cache. May let go of the command lock.
int hdfdb_populate(std::string_view name = {});

} // namespace qvcd

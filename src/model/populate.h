#pragma once

#include "base/request.h"
#include "platform/sysroot.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// Reads a metadata file into metaDB, merging, and expands all templates. 1 after reporting what is wrong;
/// metaDB then keeps what stood before the error, unexpanded.
int hdfdb_load_meta_file(Request &request, const FileName &file);

/// There is an API that hdfdb_populate() would fill.
bool model_has_api();

/// The files that it was given, as they were named.
const std::vector<std::string> &model_files();

/// Removes the new texts that a crash left beside the files of APIs (base/replace_files.h).
void model_remove_left_overs();

/// Fills hdfDB for every API below the metadata node `name` (empty: for all) that is `wanted` (none: all
/// are), from the system or from defaults. May let go of the command lock.
int hdfdb_populate(Request &request, std::string_view name = {},
                   const std::function<bool(const std::string &api)> &wanted = {});

} // namespace qvcd

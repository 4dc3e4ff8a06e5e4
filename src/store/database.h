#pragma once

#include "platform/sysroot.h"
#include "store/hdfutils.h"
#include "store/meta.h"
#include "store/tree.h"

#include <string>

namespace qvcd {

// The two trees every command works on. Changed only under the command lock.

extern Tree hdfDB; ///< the settings: one leaf an API, holding its current value
extern Tree
    metaDB; ///< the metadata: a node of the same name an API, its children are the attributes.
            ///< Flags are raised with meta_set(); who may raise some in other ways calls flags_forget()

/// Creates both trees, empty.
int hdfdb_init();

/// Reads a file of values into hdfDB; 1 after logging what is wrong, hdfDB then keeps what stood before the
/// error.
int hdfdb_load_file(const FileName &file);

int hdfdb_destroy();

} // namespace qvcd

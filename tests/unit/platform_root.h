#pragma once

#include "temp_folder.h"

#include <cstdlib>

namespace qvcd {

/// The appliance's root of this test program. The platform library reads QV_SYSROOT once, so it is set before
/// main().
struct TestRoot {
    TempFolder folder;
    TestRoot() { setenv("QV_SYSROOT", folder.path().c_str(), 1); }
};

inline const TestRoot test_root;

} // namespace qvcd

#pragma once

#include "temp_folder.h"

namespace qvcd {

/// The folder that stands for "/" of the appliance in this test program; one for all tests, because the
/// sysroot is read once a process.
inline const TempFolder &appliance_root()
{
    static const TempFolder folder;
    return folder;
}

/// Set before main(), so that no test can ask for the sysroot earlier.
inline const bool appliance_root_is_set = setenv("QV_SYSROOT", appliance_root().path().c_str(), 1) == 0;

/// A test that begins with an empty root.
template <class Base>
class OnEmptyRoot : public Base {
  protected:
    void SetUp() override
    {
        for (const auto &entry : std::filesystem::directory_iterator(appliance_root().path()))
            std::filesystem::remove_all(entry.path());
    }
};

} // namespace qvcd

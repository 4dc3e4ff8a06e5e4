#pragma once

#include <string>

namespace qvcd {

// Paths are paths of this machine (platform/sysroot.h).

/// Copies a file: 0, or 1 when `src` cannot be opened or `dst` cannot be written. `dst` is replaced in one
/// step (base/file_text.h), so it never holds a part of `src`.
int utils_copy_file(const std::string &src, const std::string &dst);

/// The same, and the name `src` is removed before anything is written: when `dst` cannot be written the data
/// is lost. Callers rely on the name being gone whatever happens.
int utils_move_file(const std::string &src, const std::string &dst);

} // namespace qvcd

#pragma once

#include "base/request.h"

namespace qvcd {

inline constexpr int kMaxTemplateCopies = 65536; // of one template; a "range" that asks for more is refused

/// Expands every template of metaDB: a node whose name contains "__" and that has a "range".
int dyngroup_expand_meta(Request &request);

} // namespace qvcd

#pragma once

#include "base/request.h"

namespace qvcd {

/// Of one template; a "range" that asks for more is refused.
inline constexpr unsigned kMaxTemplateCopies = 65536;

/// Of all templates together: those in others multiply, and each copy costs some kilobytes.
inline constexpr unsigned kMaxCopiesOfOneRun = 2 * kMaxTemplateCopies;

/// Expands every template of metaDB: a node whose name contains "__" and that has a "range". A range with a
/// mistake is logged: a step that is no number counts as 1, one below 1 makes one copy, a first number below
/// 0 makes none.
int dyngroup_expand_meta(Request &request);

} // namespace qvcd

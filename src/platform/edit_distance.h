#pragma once

#include <cstddef>
#include <string_view>

namespace qvcd {

/// How many bytes must be changed, added, left out or swapped with their neighbour to make `b` of `a`. Takes
/// the product of their lengths in steps: bound them first.
std::size_t edit_distance(std::string_view a, std::string_view b);

} // namespace qvcd

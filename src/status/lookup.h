#pragma once

#include <cstddef>
#include <string_view>

namespace qvcd {

/// The row of a table whose `name` is exactly `name`; null when there is none.
template <class Row, std::size_t N>
const Row *find_row(const Row (&rows)[N], std::string_view name)
{
    for (const Row &row : rows) {
        if (row.name == name)
            return &row;
    }
    return nullptr;
}

} // namespace qvcd

#pragma once

#include <iterator>
#include <string_view>
#include <vector>

namespace qvcd {

/// The row of a table whose `name` is exactly `name`; null when there is none.
template <class Rows>
constexpr auto find_row(const Rows &rows, std::string_view name) -> decltype(&*std::begin(rows))
{
    for (const auto &row : rows) {
        if (row.name == name)
            return &row;
    }
    return nullptr;
}

/// The same; the table's first row, its fallback, when there is none.
template <class Rows>
constexpr const auto &row_or_first(const Rows &rows, std::string_view name)
{
    const auto *row = find_row(rows, name);
    return row ? *row : *std::begin(rows);
}

/// The names of all rows.
template <class Rows>
std::vector<std::string_view> row_names(const Rows &rows)
{
    std::vector<std::string_view> names;
    for (const auto &row : rows)
        names.push_back(row.name);
    return names;
}

} // namespace qvcd

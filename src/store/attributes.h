#pragma once

#include <span>
#include <string_view>

namespace qvcd {

/// For whom an attribute counts.
enum class Counts {
    below,  ///< every API below the node that has it
    own,    ///< the API whose own node has it
    daemon, ///< the same; the daemon writes it, models have none
};

/// A word that metadata may hold beside names of groups and APIs; docs/model.md says what each means.
struct AttributeRow {
    std::string_view name;
    Counts counts;
};

/// All of them.
std::span<const AttributeRow> attribute_rows();

} // namespace qvcd

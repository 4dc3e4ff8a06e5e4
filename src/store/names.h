#pragma once

#include <string_view>

namespace qvcd {

/// What a name that a client gave stands for.
enum class NameKind {
    nothing, ///< unknown; a name below an API, which is an attribute; the empty name
    group,   ///< a node of the settings or the metadata with names below it
    api,     ///< a name with a value in the settings
};

NameKind name_kind(std::string_view name);

} // namespace qvcd

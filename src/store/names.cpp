#include "store/names.h"

#include "store/database.h"

namespace qvcd {

namespace {

// A group of the metadata need not have settings: templates have none, nor has a group of such.
bool is_metadata_group(std::string_view name)
{
    for (std::size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.', dot + 1)) {
        if (hdfDB.find(name.substr(0, dot)).is_leaf())
            return false;
    }
    return static_cast<bool>(metaDB.find(name).first_child());
}

} // namespace

NameKind name_kind(std::string_view name)
{
    if (name.empty())
        return NameKind::nothing;
    const Node setting = hdfDB.find(name);
    if (setting.is_leaf())
        return NameKind::api;
    return setting.first_child() || is_metadata_group(name) ? NameKind::group : NameKind::nothing;
}

} // namespace qvcd

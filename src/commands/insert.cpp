#include "commands/insert.h"

#include "base/text.h"
#include "base/value.h"
#include "commands/targets.h"
#include "platform/log.h"

#include <algorithm>
#include <set>

namespace qvcd {

namespace {

constexpr std::size_t kMaxInserted = 10000;
constexpr int kMaxInsertedDepth = kMaxTreeDepth - 1; // its metadata stands one level deeper

constexpr char kInvalidName[] = "##Invalid name#";
constexpr char kTooMany[] = "##Too many inserted parameters#";

std::set<std::string, std::less<>> inserted; // names that delete takes; used under the command lock

// True for a name that nobody has, with nothing but groups above it.
bool is_new_name(std::string_view name)
{
    const auto depth = std::count(name.begin(), name.end(), '.') + 1;
    if (!is_tree_name(name) || name.size() > kMaxNameBytes || depth > kMaxInsertedDepth || hdfDB.find(name) ||
        metaDB.find(name))
        return false;
    for (std::size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.', dot + 1)) {
        const std::string_view above = name.substr(0, dot);
        if (hdfDB.get(above) || metaDB.get(above)) // an API or an attribute
            return false;
    }
    return true;
}

// The rights that a name inherits decide who may make and delete it; where there are none, administrators do.
// The group above stores nothing: it is to go with the last name in it.
bool may_change(const Request &request, std::string_view name)
{
    for (auto above = meta_get_parent(name); above; above = meta_get_parent(*above)) {
        const MetaApi group(*above);
        if (!group)
            continue;
        if (const auto perm = group.get("perm"))
            return (request.mask & c_hex16(*perm) & kWriteBits) != 0;
        break; // looking up goes all the way
    }
    return (request.mask & kLevel1Bits) != 0;
}

const char *insert_error(const Request &request, std::string_view name,
                         const std::optional<std::string> &value)
{
    if (!is_new_name(name))
        return kInvalidName;
    if (!may_change(request, name))
        return API_E_INVALID_PERMISSION;
    if (inserted.size() >= kMaxInserted)
        return kTooMany;
    return value ? value_error(*value) : API_E_INVALID_CHARACTER;
}

int command_insert(Request &request, Args &argv, std::FILE *out)
{
    const std::size_t equals = argv.empty() ? std::string::npos : argv.front().find('=');
    if (equals == std::string::npos)
        return 1;
    const std::string name = argv.front().substr(0, equals);
    const auto value = url_unescape(std::string_view(argv.front()).substr(equals + 1));
    if (const char *error = insert_error(request, name, value))
        return refuse(name, error, out);
    if (!hdfDB.set(name, *value) || !metaDB.set(name + ".inserted", "1"))
        return 1;
    inserted.insert(name);
    qv_log_print(kLogInfo, "Insert %s=%s\n", name.c_str(), value_for_log(name, *value).c_str());
    return 0;
}

// Removes what the insertion made: the name, and the groups above that nothing else is left in.
void remove_with_empty_groups(Tree &tree, std::string_view name)
{
    tree.remove(name);
    for (auto above = meta_get_parent(name); above; above = meta_get_parent(*above)) {
        const Node group = tree.find(*above);
        if (group.first_child() || group.value())
            return;
        tree.remove(*above);
    }
}

int command_delete(Request &request, Args &argv, std::FILE *out)
{
    const auto found = argv.empty() ? inserted.end() : inserted.find(argv.front());
    if (found == inserted.end())
        return 1;
    if (!may_change(request, *found))
        return refuse(*found, API_E_INVALID_PERMISSION, out);
    const std::string name = *found;
    inserted.erase(found);
    remove_with_empty_groups(hdfDB, name);
    remove_with_empty_groups(metaDB, name);
    flags_drop(name);
    qv_log_print(kLogInfo, "Remove %s\n", name.c_str());
    return 0;
}

int forget_inserted()
{
    inserted.clear();
    return 0;
}

} // namespace

const CommandRecord insertRecord = {
    .name = "insert",
    .init = forget_inserted,
    .handler = command_insert,
    .summary = "Add a temporary API into the database",
    .synopsis = "Key/value pair to add",
    .errors =
        "<name>=##Invalid name#: the name is taken, stands at, above or below another API, or is too deep.\n"
        "<name>=##Invalid permission#: the caller may not write where the name would stand.",
    .assigns = true,
};

const CommandRecord deleteRecord = {
    .name = "delete",
    .handler = command_delete,
    .summary = "Remove a temporary API",
    .synopsis = "Key to remove",
    .notes = "Used with the insert command.",
};

} // namespace qvcd

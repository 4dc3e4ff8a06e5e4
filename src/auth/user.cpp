#include "auth/user.h"

#include "base/limits.h"
#include "base/text.h"
#include "platform/api_errors.h"
#include "platform/crypto.h"
#include "platform/log.h"
#include "store/hdf_file.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace qvcd {

Tree userDB;
Tree groupDB;

namespace {

struct Ceiling {
    long group;
    unsigned mask;
};

// What a group may hold at most, whatever the user file says of it.
constexpr Ceiling kCeilings[] = {{0, 0xffff}, {1, 0x0fff}, {2, 0x00ff}};
constexpr unsigned kLowestCeiling = 0x000f;

struct BuiltIn {
    Tree &tree;
    const char *name;
    const char *value;
};

FileName user_file;

const BuiltIn kBuiltIn[] = {
    {groupDB, "Group.1.perm", "777"},
    {userDB, "User.admin.group", "1"},
    {userDB, "User.admin.passwd", "kelpo"},
};

// A group that is not numbered gets the lowest ceiling: C's reading of "abc" is 0, the most powerful group.
unsigned ceiling_of(std::string_view group)
{
    long number = 0;
    if (std::from_chars(group.data(), group.data() + group.size(), number).ec != std::errc())
        return kLowestCeiling;
    const auto *row = std::ranges::find(kCeilings, number, &Ceiling::group);
    return row == std::end(kCeilings) ? kLowestCeiling : row->mask;
}

// Groups are named in files and by clients; a dot must not lead to another node.
Node find_group(std::string_view group)
{
    return is_user_name(group) ? groupDB.find("Group." + std::string(group)) : Node();
}

Node find_user(std::string_view name)
{
    return is_user_name(name) ? userDB.find("User." + std::string(name)) : Node();
}

std::optional<std::string> user_get(std::string_view name, std::string_view field)
{
    const std::optional<std::string_view> value = find_user(name).get(field);
    return value ? std::optional<std::string>(*value) : std::nullopt;
}

void copy_subtree(const Tree &from, std::string_view name, Tree &to)
{
    if (const Node source = from.find(name))
        to.root().merge(name, source);
}

Tree groups_and_users()
{
    Tree both = Tree::make();
    copy_subtree(groupDB, "Group", both);
    copy_subtree(userDB, "User", both);
    return both;
}

bool is_blank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// A value that one line of an HDF file gives back as it is.
bool is_line_value(std::string_view value)
{
    return value.empty() ||
           (!is_blank(value.front()) && !is_blank(value.back()) &&
            value.find('\n') == std::string_view::npos && value.find('\0') == std::string_view::npos);
}

// One entry that the user file cannot hold would keep every later change from being written.
bool can_be_written(Node node)
{
    if (!is_line_value(node.text()))
        return false;
    for (const Node child : node) {
        if (!can_be_written(child))
            return false;
    }
    return true;
}

bool can_be_imported(Node subtree)
{
    for (const Node entry : subtree) {
        if (!is_user_name(entry.name()))
            return false;
    }
    return can_be_written(subtree);
}

} // namespace

bool is_user_name(std::string_view name)
{
    return name.size() <= kMaxNameBytes && name.find('.') == std::string_view::npos && is_tree_name(name);
}

int user_set_db_file(FileName file)
{
    user_file = std::move(file);
    return 0;
}

int user_load_db_file(const FileName &file)
{
    userDB = Tree::make();
    groupDB = Tree::make();
    Tree fresh = Tree::make();
    const HdfRead read = hdf_read_own_file_whole(file.path, fresh);
    if (read.result == HdfResult::missing) {
        for (const BuiltIn &row : kBuiltIn)
            row.tree.set(row.name, row.value);
        qv_log_print(kLogError, "can not read user config file %s\n", file.text.c_str());
        return 0;
    }
    if (read.result == HdfResult::error) {
        qv_log_print(kLogError, "%s: %s\n", file.text.c_str(), read.detail.c_str());
        return 1;
    }
    copy_subtree(fresh, "Group", groupDB);
    copy_subtree(fresh, "User", userDB);
    qv_log_print(kLogInfo, "Loading %s into user DB\n", file.text.c_str());
    return 0;
}

int user_unload_db_file()
{
    groupDB.destroy();
    userDB.destroy();
    return 0;
}

int user_update_perm_file()
{
    user_export(user_file.path);
    return 0;
}

bool user_exists(std::string_view name)
{
    return static_cast<bool>(find_user(name));
}

unsigned user_get_perm(std::string_view name)
{
    const std::optional<std::string> group = user_get_group(name);
    if (!group)
        return 0;
    const std::optional<std::string_view> perm = find_group(*group).get("perm");
    return perm ? c_hex16(*perm) & ceiling_of(*group) : 0;
}

std::optional<std::string> user_get_group(std::string_view name)
{
    return user_get(name, "group");
}

std::optional<std::string> user_get_passwd(std::string_view name)
{
    return user_get(name, "passwd");
}

std::optional<std::string> user_get_default(std::string_view name)
{
    return user_get(name, "default");
}

bool user_check_passwd(std::string_view name, std::string_view password)
{
    const std::optional<std::string> stored = user_get_passwd(name);
    return stored && qvcrypto_equal(*stored, password);
}

const char *user_passwd_error(std::string_view password)
{
    if (password.size() > kMaxValueBytes)
        return API_E_INVALID_PASSWORD_TOO_LONG;
    return is_line_value(password) ? nullptr : API_E_INVALID_PASSWORD_CHARACTER;
}

const char *user_set_group(std::string_view name, std::string_view group)
{
    if (!is_user_name(name))
        return API_E_INVALID_USER;
    if (!find_group(group))
        return API_E_INVALID_GROUP;
    return userDB.set("User." + std::string(name) + ".group", group) ? nullptr : API_E_INVALID_USER;
}

bool user_set_passwd(std::string_view name, std::string_view password)
{
    return user_exists(name) && userDB.set("User." + std::string(name) + ".passwd", password);
}

bool user_remove(std::string_view name)
{
    return user_exists(name) && userDB.remove("User." + std::string(name));
}

UserImport user_import(const std::string &path)
{
    Tree fresh = Tree::make();
    const HdfRead read = hdf_read_foreign_file(path, fresh);
    if (read.result == HdfResult::missing)
        return UserImport::missing;
    if (read.result == HdfResult::error) {
        qv_log_print(kLogError, "Can not import users: %s\n", read.detail.c_str());
        return UserImport::error;
    }
    const Node groups = fresh.find("Group");
    const Node users = fresh.find("User");
    if (!can_be_imported(groups) || !can_be_imported(users)) {
        qv_log_print(kLogError, "Can not import users: a name or a value that the user file can not hold\n");
        return UserImport::error;
    }
    copy_subtree(fresh, "Group", groupDB);
    copy_subtree(fresh, "User", userDB);
    if (groups || users)
        user_update_perm_file();
    return UserImport::done;
}

bool user_export(const std::string &path)
{
    const Tree both = groups_and_users();
    return hdf_write_file(path, both.root(), FileKind::secret);
}

} // namespace qvcd

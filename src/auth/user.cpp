#include "auth/user.h"

#include "auth/stored_password.h"
#include "auth/user_document.h"
#include "base/limits.h"
#include "base/options.h"
#include "base/text.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "platform/password_hash.h"
#include "store/hdf_file.h"
#include "store/meta.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <set>
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
constexpr unsigned kEverything = 0xffff;

struct BuiltIn {
    const char *name;
    const char *value;
};

FileName user_file;
bool file_unread = false; // the file holds users that we do not know

constexpr BuiltIn kBuiltIn[] = {
    {"Group.1.perm", "777"},
    {"User.admin.group", "1"},
    {"User.admin.passwd", "kelpo"},
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
Node find_group(const Tree &groups, std::string_view group)
{
    return is_user_name(group) ? groups.find("Group." + std::string(group)) : Node();
}

Node find_user(const Tree &users, std::string_view name)
{
    return is_user_name(name) ? users.find("User." + std::string(name)) : Node();
}

unsigned mask_of_group(const Tree &groups, std::string_view group)
{
    const std::optional<std::string_view> perm = find_group(groups, group).get("perm");
    return perm ? c_hex16(*perm) & ceiling_of(group) : 0;
}

unsigned mask_of_user(const Tree &groups, const Tree &users, std::string_view name)
{
    const std::optional<std::string_view> group = find_user(users, name).get("group");
    return group ? mask_of_group(groups, *group) : 0;
}

std::optional<std::string> own_copy(std::optional<std::string_view> view)
{
    return view ? std::optional<std::string>(*view) : std::nullopt;
}

std::optional<std::string> user_get(std::string_view name, std::string_view field)
{
    return own_copy(find_user(userDB, name).get(field));
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

void take(const Tree &both)
{
    Tree groups = Tree::make();
    Tree users = Tree::make();
    copy_subtree(both, "Group", groups);
    copy_subtree(both, "User", users);
    groupDB = std::move(groups);
    userDB = std::move(users);
}

// A user whom the document gives a group that there is not.
std::optional<std::string> user_without_group(const Tree &document, const Tree &next)
{
    for (const Node user : document.find("User")) {
        const auto group = user.get("group");
        if (group && !find_group(next, *group))
            return std::string(user.name());
    }
    return std::nullopt;
}

std::set<std::string> children_of(Node node)
{
    std::set<std::string> names;
    for (const Node child : node)
        names.emplace(child.name());
    return names;
}

// The passwords of a tree of our own that are to be stored otherwise than they stand there. By name: other
// threads work on their trees meanwhile.
void hash_passwords_of(Tree &fresh)
{
    for (const std::string &user : children_of(fresh.find("User"))) {
        for (const char *field : {".passwd", ".default"}) {
            const std::string name = "User." + user + field;
            const std::optional<std::string> text = own_copy(fresh.get(name));
            if (!text || qv_is_password_hash(*text))
                continue;
            if (const std::optional<std::string> stored = stored_form(*text))
                fresh.set(name, *stored);
        }
    }
}

// Asks of what was before and of what would be: of the users that the change names, even where it gives them
// what they have (or it would tell whether a guessed password is right), of all whose rights it changes by
// their group, and of the groups.
bool may_change(unsigned rights, const Tree &next, const std::set<std::string> &named)
{
    std::set<std::string> users = children_of(next.find("User"));
    users.merge(children_of(userDB.find("User")));
    for (const std::string &name : users) {
        const unsigned before = user_get_perm(name);
        const unsigned after = mask_of_user(next, next, name);
        if ((before != after || named.contains(name)) && !is_within(rights, before | after))
            return false;
    }
    for (const std::string &group : children_of(next.find("Group"))) {
        const unsigned before = mask_of_group(groupDB, group);
        const unsigned after = mask_of_group(next, group);
        if (before != after && !is_within(rights, before | after))
            return false;
    }
    return true;
}

// The administration that a user may do; none without a password to log in with.
unsigned administration(const Tree &groups, const Tree &users, const std::string &name)
{
    return find_user(users, name).get("passwd") ? mask_of_user(groups, users, name) & kLevel1Bits : 0;
}

// False when nobody would be left who may do all that one of the administrators may do now: there would be no
// way back but the user file.
bool keeps_administrators(const Tree &next)
{
    const std::set<std::string> after = children_of(next.find("User"));
    return std::ranges::all_of(children_of(userDB.find("User")), [&](const std::string &name) {
        const unsigned now = administration(groupDB, userDB, name);
        return now == 0 || std::ranges::any_of(after, [&](const std::string &other) {
                   return is_within(administration(next, next, other), now);
               });
    });
}

// Makes `next` the users and groups, when the caller may do that and the user file takes it.
const char *change_to(const Tree &next, unsigned rights, const std::set<std::string> &named)
{
    if (file_unread) {
        qv_log_print(kLogError, "The users do not change: %s could not be read\n", user_file.text.c_str());
        return kUserFileError;
    }
    if (!may_change(rights, next, named))
        return API_E_INVALID_PERMISSION;
    if (!keeps_administrators(next))
        return kNoAdministrator;
    const FileResult written = hdf_write_file(user_file.path, next.root(), FileKind::secret);
    if (!written.changed)
        return kUserFileError;
    take(next);
    return written.error ? kNotFlushed : nullptr;
}

bool can_export()
{
    if (file_unread)
        qv_log_print(kLogError, "No users to export: %s could not be read\n", user_file.text.c_str());
    return !file_unread;
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
    Tree fresh = Tree::make();
    const HdfRead read = hdf_read_own_file_whole(file.path, fresh);
    file_unread = read.result == HdfResult::error;
    if (read.result == HdfResult::missing) {
        for (const BuiltIn &row : kBuiltIn)
            fresh.set(row.name, row.value);
        qv_log_print(kLogError, "can not read user config file %s\n", file.text.c_str());
    } else if (file_unread) {
        fresh = Tree::make();
        qv_log_print(kLogError, "%s: %s\n", file.text.c_str(), read.detail.c_str());
    } else {
        qv_log_print(kLogInfo, "Loading %s into user DB\n", file.text.c_str());
    }
    take(fresh);
    return file_unread ? 1 : 0;
}

void user_reread_db_file()
{
    Tree fresh = Tree::make();
    if (!file_unread || hdf_read_own_file_whole(user_file.path, fresh).result != HdfResult::ok)
        return;
    qv_log_print(kLogNotice, "Loading %s into user DB\n", user_file.text.c_str());
    take(fresh);
    file_unread = false;
}

int user_unload_db_file()
{
    groupDB.destroy();
    userDB.destroy();
    file_unread = false;
    return 0;
}

bool user_exists(std::string_view name)
{
    return static_cast<bool>(find_user(userDB, name));
}

unsigned user_group_mask(std::string_view group)
{
    return mask_of_group(groupDB, group);
}

std::string mask_text(unsigned mask)
{
    std::array<char, 16> text{};
    return {text.data(), std::to_chars(text.begin(), text.end(), mask, 16).ptr};
}

unsigned user_get_perm(std::string_view name)
{
    return mask_of_user(groupDB, userDB, name);
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

std::optional<std::string> user_get_stored(std::string_view name, std::string_view field)
{
    return user_get(name, field);
}

bool user_has_built_in_password(std::string_view name, std::string_view password)
{
    const std::string field = "User." + std::string(name) + ".passwd";
    return std::ranges::any_of(
        kBuiltIn, [&](const BuiltIn &row) { return row.name == field && row.value == password; });
}

const char *user_passwd_error(std::string_view password)
{
    if (password.size() > (hash_passwords ? kMaxHashedPasswordBytes : kMaxValueBytes))
        return API_E_INVALID_PASSWORD_TOO_LONG;
    return is_user_file_value(password) ? nullptr : API_E_INVALID_PASSWORD_CHARACTER;
}

const char *user_set_group(unsigned rights, std::string_view name, std::string_view group,
                           const std::optional<std::string> &password)
{
    if (!is_user_name(name))
        return API_E_INVALID_USER;
    const std::optional<std::string> stored = password ? stored_form(*password) : std::nullopt;
    if (password && !stored)
        return kUserFileError;
    if (!find_group(groupDB, group))
        return API_E_INVALID_GROUP;
    Tree next = groups_and_users();
    next.set("User." + std::string(name) + ".group", group);
    if (stored)
        next.set("User." + std::string(name) + ".passwd", *stored);
    return change_to(next, rights, {std::string(name)});
}

const char *user_set_passwd(unsigned rights, const std::vector<NewPassword> &passwords)
{
    std::vector<std::string> stored;
    for (const NewPassword &one : passwords) {
        const bool is_hash = one.is_stored && qv_is_password_hash(one.password);
        std::optional<std::string> form = is_hash ? one.password : stored_form(one.password);
        if (!form)
            return kUserFileError;
        stored.push_back(std::move(*form));
    }
    Tree next = groups_and_users();
    std::set<std::string> named;
    for (std::size_t i = 0; i < passwords.size(); ++i) {
        const std::string &user = passwords[i].user;
        if (!user_exists(user)) // he went while the passwords were hashed
            continue;
        next.set("User." + user + ".passwd", stored[i]);
        named.insert(user);
    }
    return named.empty() ? API_E_INVALID_USER : change_to(next, rights, named);
}

const char *user_replace_stored(std::string_view name, const std::vector<StoredPassword> &changes)
{
    Tree next = groups_and_users();
    bool changed = false;
    for (const StoredPassword &change : changes) {
        if (user_get(name, change.field) != change.before)
            continue;
        next.set("User." + std::string(name) + "." + change.field, change.after);
        changed = true;
    }
    return changed ? change_to(next, kEverything, {}) : nullptr;
}

const char *user_remove(unsigned rights, std::string_view name)
{
    Tree next = groups_and_users();
    next.remove("User." + std::string(name));
    return change_to(next, rights, {std::string(name)});
}

const char *user_import(unsigned rights, HdfRead &read, Tree fresh)
{
    if (read.result == HdfResult::missing)
        return "##Specify a file to import#";
    if (read.result == HdfResult::ok)
        read.detail = user_document_error(fresh);
    if (read.result == HdfResult::error || !read.detail.empty()) {
        qv_log_print(kLogError, "Can not import users: %s\n", read.detail.c_str());
        return "##Error in file format#";
    }
    hash_passwords_of(fresh);
    Tree next = groups_and_users();
    copy_subtree(fresh, "Group", next);
    copy_subtree(fresh, "User", next);
    if (const auto user = user_without_group(fresh, next)) {
        read.detail = "of user " + *user;
        return API_E_INVALID_GROUP;
    }
    return change_to(next, rights, children_of(fresh.find("User")));
}

Tree user_shown_to(unsigned rights)
{
    Tree shown = Tree::make();
    copy_subtree(userDB, "User", shown);
    for (const Node user : shown.find("User")) {
        if (is_within(rights, user_get_perm(user.name())))
            continue;
        for (Node secret : {user.child("passwd"), user.child("default")})
            secret.set("", kHiddenPassword);
    }
    return shown;
}

bool user_all_within(unsigned rights)
{
    return std::ranges::all_of(children_of(userDB.find("User")), [rights](const std::string &name) {
        return is_within(rights, user_get_perm(name));
    });
}

std::optional<std::string> user_document()
{
    return can_export() ? std::optional(hdf_text(groups_and_users().root())) : std::nullopt;
}

bool user_export(const std::string &path)
{
    return can_export() && hdf_write_file(path, groups_and_users().root(), FileKind::named_secret).error == 0;
}

} // namespace qvcd

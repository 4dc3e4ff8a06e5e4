#pragma once

#include "platform/sysroot.h"
#include "store/hdf_file.h"
#include "store/tree.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// Users, groups and what they may do. Changed and read only under the command lock.
//
// The user file is an HDF file of mode 0600 with two subtrees:
//   Group.<number>.perm    permission mask of the group, hexadecimal digits
//   User.<name>.group      number of the user's group
//   User.<name>.passwd     password, plain text or its hash (platform/password_hash.h)
//   User.<name>.default    factory default password, likewise; optional

extern Tree userDB;  ///< the "User" subtree
extern Tree groupDB; ///< the "Group" subtree

/// True for a name that a user can have: letters, digits and "_" only, at most kMaxNameBytes.
bool is_user_name(std::string_view name);

/// Remembers where changes are written. Returns 0.
int user_set_db_file(FileName file);

/// Makes both trees from the user file. Without a file there is one user, "admin" of group 1 with the
/// built-in password. Returns 1 when the file is there but cannot be read whole: then there are no users at
/// all, and no change is taken, so that the file stays as it is.
int user_load_db_file(const FileName &file);

/// After such a failure: tries the file again. A file that is gone meanwhile does not count as read.
void user_reread_db_file();

int user_unload_db_file();

bool user_exists(std::string_view name);

/// The mask of the user's group, cut to what a group of this number may hold at most: 0xffff for group 0,
/// 0x0fff for 1, 0x00ff for 2, 0x000f for all others. 0 for an unknown user or group.
unsigned user_get_perm(std::string_view name);

/// The same of a group.
unsigned user_group_mask(std::string_view group);

/// A mask as files and replies have it: hexadecimal digits, in lower case.
std::string mask_text(unsigned mask);

std::optional<std::string> user_get_group(std::string_view name);
std::optional<std::string> user_get_passwd(std::string_view name);
std::optional<std::string> user_get_default(std::string_view name);

/// Either of them, by the name of its field.
std::optional<std::string> user_get_stored(std::string_view name, std::string_view field);

/// True for the user and the password that are there without a user file: everybody may know them.
bool user_has_built_in_password(std::string_view name, std::string_view password);

/// True when the caller's `rights` hold all that `mask` allows: only then may he give it to somebody, change
/// or remove who has it, or see that one's password.
inline bool is_within(unsigned rights, unsigned mask)
{
    constexpr unsigned kAllRights = 0x7777;
    return (mask & ~rights & kAllRights) == 0;
}

/// Null, or the error text for a password that no user can have: over kMaxValueBytes (or what can be hashed,
/// where passwords are), with a control character, or with a blank at an end.
const char *user_passwd_error(std::string_view password);

// Changes, on behalf of a caller with these rights. A change is made whole, in memory and in the user file,
// or not at all. They return null or the error text for the reply: API_E_INVALID_PERMISSION when the caller
// may not do it, kUserFileError when the file cannot be written, kNotFlushed when it is changed but may be
// the old one after a power failure (base/file_text.h); the log says why.

inline constexpr char kUserFileError[] = "##Can not write user file#";

/// Nobody with a password would be left who may do all of the administration that one may do now.
inline constexpr char kNoAdministrator[] = "##No administrator would be left#";

/// Sets the group, creating the user when needed, and with it a password that has passed
/// user_passwd_error(). Errors: a bad name, an unknown group. Lets go of the command lock where a password is
/// hashed.
const char *user_set_group(unsigned rights, std::string_view name, std::string_view group,
                           const std::optional<std::string> &password = std::nullopt);

struct NewPassword {
    std::string user;
    std::string password;   ///< has passed user_passwd_error()
    bool is_stored = false; ///< it comes from the user file, and may be a hash
};

/// Sets passwords of existing users; API_E_INVALID_USER when none of them exists. Lets go of the command lock
/// where they are hashed.
const char *user_set_passwd(unsigned rights, const std::vector<NewPassword> &passwords);

struct StoredPassword {
    std::string field; ///< "passwd" or "default"
    std::string before, after;
};

/// Replaces what is stored for the user, where it is still what it was before.
const char *user_replace_stored(std::string_view name, const std::vector<StoredPassword> &changes);

/// Removes an existing user.
const char *user_remove(unsigned rights, std::string_view name);

/// Merges the users and groups of what a client named or sent (store/hdf_file.h), and is the callee's from
/// then on, into the present ones. Hashes are taken as they are, plain passwords like new ones; lets go of
/// the command lock for that. Errors: no such file; a file that is no user file, or holds anything else; a
/// group that there is not. `read.detail` says then what is wrong.
const char *user_import(unsigned rights, HdfRead &read, Tree fresh);

/// The users as the caller may see them: passwords of those who may do more than he read "*******".
Tree user_shown_to(unsigned rights);

/// True when no user may do more than the caller: only then is what he exports whole.
bool user_all_within(unsigned rights);

/// Writes groups and users to a file of mode 0600, a path of this machine, in place of what bears the name
/// (base/file_text.h); false after logging why not.
bool user_export(const std::string &path);

/// The text of such a file; nothing, after logging why, when the users are not known.
std::optional<std::string> user_document();

} // namespace qvcd

#pragma once

#include "platform/sysroot.h"
#include "store/tree.h"

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

// Users, groups and what they may do. Changed and read only under the command lock.
//
// The user file is an HDF file of mode 0600 with two subtrees:
//   Group.<number>.perm    permission mask of the group, hexadecimal digits
//   User.<name>.group      number of the user's group
//   User.<name>.passwd     password, plain text
//   User.<name>.default    factory default password, plain text; optional

extern Tree userDB;  ///< the "User" subtree
extern Tree groupDB; ///< the "Group" subtree

/// True for a name that a user can have: letters, digits and "_" only, at most kMaxNameBytes.
bool is_user_name(std::string_view name);

/// Remembers where user_update_perm_file() writes. Returns 0.
int user_set_db_file(FileName file);

/// Makes both trees from the user file. Without a file there is one user, "admin" of group 1 with the
/// built-in password. Returns 1 when the file is there but cannot be read whole: then there are no users at
/// all.
int user_load_db_file(const FileName &file);

int user_unload_db_file();

/// Writes both trees to the remembered file in one step. Returns 0; a failure is logged, the old file then
/// stays.
int user_update_perm_file();

bool user_exists(std::string_view name);

/// The mask of the user's group, cut to what a group of this number may hold at most: 0xffff for group 0,
/// 0x0fff for 1, 0x00ff for 2, 0x000f for all others. 0 for an unknown user or group.
unsigned user_get_perm(std::string_view name);

std::optional<std::string> user_get_group(std::string_view name);
std::optional<std::string> user_get_passwd(std::string_view name);
std::optional<std::string> user_get_default(std::string_view name);

/// True when the password is the user's. Takes equally long whatever the stored password holds; false for a
/// user without one.
bool user_check_passwd(std::string_view name, std::string_view password);

// The changes below are in memory only; user_update_perm_file() makes them last.

/// Null, or the error text for a password that the user file could not give back: over kMaxValueBytes, with a
/// newline or a NUL byte, or with a blank at an end.
const char *user_passwd_error(std::string_view password);

/// Sets the group, creating the user when needed; null, or the error text for a bad name or an unknown group.
const char *user_set_group(std::string_view name, std::string_view group);

/// Sets the password of an existing user. The password has passed user_passwd_error().
bool user_set_passwd(std::string_view name, std::string_view password);

/// False when there is no such user.
bool user_remove(std::string_view name);

enum class UserImport { done, missing, error };

/// Merges a file's users and groups into the trees, all or nothing, and writes the user file when the file
/// had any of the two subtrees. `path` is a path of this machine, of a file that a client named.
UserImport user_import(const std::string &path);

/// Writes groups and users to a file of mode 0600; false after logging why not. `path` as in user_import().
bool user_export(const std::string &path);

} // namespace qvcd

#pragma once

#include "store/tree.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// Profiles: named snapshots of settings, one HDF file each, "/etc/profiles/<name>.hdf", and the tree that
// tells which there are. Values in the files are URL-encoded. A profile may belong to a group of settings,
// whose identifier is the full name of the group's "name" API, "<prefix>.Profiles.name".

inline constexpr char kProfileFolder[] = "/etc/profiles";
inline constexpr char kDefaultProfile[] = "default"; ///< the factory settings: has no file
inline constexpr char kCurrentProfileApi[] = "System.Configuration.Profiles.current";
inline constexpr std::size_t kMaxGroupProfiles = 16;

/// Which profiles there are: "Profile.current" (the selected one's name), "Profile.<name>.name" and, for the
/// profiles of a group, "Profile.<name>.group". Changed only under the command lock.
extern Tree profileDB;

/// Makes profileDB anew from the folder, which is created when there is none. A name that no tree can hold
/// (with two dots in a row, or one at its end) is logged and left out. Returns 1 when the folder cannot be
/// read, else 0.
int profiledb_load();

void profiledb_destroy();

/// Enters a profile; and its group, when that is not empty. False for a name that no tree can hold.
bool profiledb_add(std::string_view name, std::string_view group = {});

/// Forgets a profile and what stands below its name.
void profiledb_remove(std::string_view name);

/// How many profiles belong to the group, counted up to kMaxGroupProfiles.
std::size_t profiledb_count_group(std::string_view group);

/// Nonzero when profileDB knows the profile.
int check_valid_profile(std::string_view name);

/// The profiles whose file names this group, as a walk over all leaves of profileDB finds them, so the
/// current one stands there twice; at most kMaxGroupProfiles, sorted bytewise.
std::vector<std::string> profile_names_of_group(std::string_view group);

/// True for a name that can be a file's: not empty, no slash, no dot in front, at most 250 bytes.
bool is_profile_name(std::string_view name);

/// The profile's file, as a path of the appliance (platform/sysroot.h).
std::string profile_file(std::string_view name);

/// Removes the files of all profiles; one that cannot be removed stays and is logged.
void profile_remove_files();

/// 0 when the profile has a file, 1 when it has none.
int profile_exists(std::string_view name);

/// Reads a profile into `tree`: 0; or 1 when there is no such file, or it is no good, which is logged. For
/// "default" nothing is read and the result is 0. `tree` is made anew otherwise.
int profile_read_hdf(std::string_view name, Tree &tree);

/// The identifier of the group a profile belongs to, at most kMaxValueBytes. 1 when the profile cannot be
/// read, else 0; a profile without a group leaves `out` as it is.
int profile_read_group(std::string_view name, std::string &out);

/// The same for the group's description. In it "%%" becomes "%"; other percent sequences stand as they are.
int profile_read_group_desc(std::string_view name, std::string &out);

} // namespace qvcd

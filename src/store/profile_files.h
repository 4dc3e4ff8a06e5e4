#pragma once

#include "store/hdf_file.h"
#include "store/tree.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// Profiles: named snapshots of settings, one HDF file each, "/etc/profiles/<name>.hdf", and the list of those
// there are. Values in the files are URL-encoded. A profile may belong to a group of settings, whose
// identifier is the full name of the group's "name" API, "<prefix>Profiles.name".

inline constexpr char kProfileFolder[] = "/etc/profiles";
inline constexpr char kDefaultProfile[] = "default"; ///< the factory settings: has no file
inline constexpr char kUnitSelection[] =
    "System.Configuration.Profiles."; ///< what its APIs' names begin with
inline constexpr char kCurrentProfileApi[] = "System.Configuration.Profiles.current";
inline constexpr std::size_t kMaxGroupProfiles = 16;
inline constexpr std::size_t kMaxProfileBytes = std::size_t{4} << 20; ///< what hdf_read_foreign_file() takes

// ---- Names ----

/// True for a name that can be a file's: not empty, no slash, no control character, no dot in front, at most
/// 250 bytes.
bool is_profile_name(std::string_view name);

/// True for an API that says which profile is selected: those of the unit, beside kCurrentProfileApi, and
/// "<prefix>Profiles.name" and ".desc" where the name's type is "profile2".
bool is_profile_selection(std::string_view api);

/// The profile's file, as a path of the appliance (platform/sysroot.h).
std::string profile_file(std::string_view name);

// ---- The list. Changed only under the command lock. ----

/// The profiles that have a file, last name first, each with its group, which is empty for none.
extern std::map<std::string, std::string, std::greater<>> profileDB;

/// Makes profileDB anew from the folder, which is created when there is none. Returns 0; 1, after logging why
/// and with the list as it was, when the folder cannot be read.
int profiledb_load();

void profiledb_destroy();

/// Enters what the profile's file was found to hold.
void profiledb_enter(const std::string &name, const Tree &document);

/// The selected profile of the unit; kDefaultProfile when there is none.
std::string profile_current();

/// "default" and the listed profiles.
std::vector<std::string> profile_names();

/// How many profiles belong to the group.
std::size_t profiledb_count_group(std::string_view group);

/// Nonzero when there is such a profile.
int check_valid_profile(std::string_view name);

/// The profiles of a group, sorted bytewise: the unit's current one, which so stands there twice, and then
/// those of profileDB, kMaxGroupProfiles in all.
std::vector<std::string> profile_names_of_group(std::string_view group);

/// Publishes what was done with a profile: event "profile", "<name>=<what>".
void publish_profile(std::string_view name, std::string_view what);

// ---- Files. A change of one changes the list with it, and is an event ("save", "remove"); the reason of an
// error is logged. ----

/// 0 when the profile has a file, 1 when it has none, 2 when that is not known, which is logged.
int profile_exists(std::string_view name);

/// Reads a profile into `tree`: 0; or 1 when there is no such file, or it is no good, which is logged. For
/// "default" nothing is read and the result is 0. `tree` is made anew otherwise.
int profile_read_hdf(std::string_view name, Tree &tree);

/// Writes a document, whose values are URL-encoded. An error too for one that could not be read again: larger
/// than kMaxProfileBytes, or nested too deeply.
FileResult profile_write_hdf(const std::string &name, const Tree &document, FileKind kind);

/// A profile's file as it is, for copies, and its group in the list. It may hold passwords, so the mode
/// counts.
struct ProfileText {
    std::string text;
    unsigned mode;
    std::string group;
};
/// Nothing when there is no such file, or, which is logged, it cannot be read.
std::optional<ProfileText> profile_read_text(const std::string &name);
FileResult profile_write_text(const std::string &name, const ProfileText &file);

FileResult profile_remove_file(const std::string &name);

/// Removes the files of all profiles. `changed` when all of them are gone.
FileResult profile_remove_files();

/// The identifier of the group that a profile's document belongs to, at most kMaxValueBytes; empty for none.
std::string profile_group(const Tree &document);

/// The same from the profile's file. 1 when it cannot be read, else 0; a profile without a group leaves `out`
/// as it is.
int profile_read_group(std::string_view name, std::string &out);

/// The same for the group's description. In it "%%" becomes "%"; other percent sequences stand as they are.
int profile_read_group_desc(std::string_view name, std::string &out);

} // namespace qvcd

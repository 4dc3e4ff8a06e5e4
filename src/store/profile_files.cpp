#include "store/profile_files.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/hdf_file.h"
#include "store/hdfutils.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace qvcd {

Tree profileDB;

namespace {

constexpr std::string_view kSuffix = ".hdf";
constexpr std::string_view kGroupSuffix = "Profiles";
constexpr std::size_t kMaxProfileNameBytes = 250; // with the suffix it is a file name on every file system

// The profile's node in profileDB; a name may hold any sign that a file name may.
std::string profile_node(std::string_view name)
{
    return std::string("Profile.").append(name);
}

struct GroupLeaf {
    std::string parent;
    std::string value;
};

// The first leaf of this name in a group of profiles.
std::optional<GroupLeaf> find_group_leaf(const Tree &profile, std::string_view name)
{
    std::optional<GroupLeaf> found;
    hdfutils_traverse_tree(profile.root(), {}, hdfutils_check_endnode,
                           [&](Node leaf, const std::string &parent) {
                               if (!found && leaf.name() == name && parent.ends_with(kGroupSuffix))
                                   found = GroupLeaf{parent, std::string(leaf.text())};
                           });
    return found;
}

std::string collapse_percents(std::string_view text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        result += text[at];
        if (text.substr(at, 2) == "%%")
            ++at;
    }
    return result;
}

// The folder's entries that hold ".hdf", last first.
std::vector<std::string> profile_entries(std::error_code &error)
{
    std::vector<std::string> entries;
    std::filesystem::directory_iterator entry(qv_sysroot_path(kProfileFolder), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (std::string name = entry->path().filename().string(); name.find(kSuffix) != std::string::npos)
            entries.push_back(std::move(name));
    }
    std::sort(entries.begin(), entries.end(), std::greater<>());
    return entries;
}

// Their names cut at ".hdf".
std::vector<std::string> stored_profiles(std::error_code &error)
{
    std::vector<std::string> names;
    for (const std::string &file : profile_entries(error)) {
        const std::string name = file.substr(0, file.find(kSuffix));
        if (is_profile_name(name))
            names.push_back(name);
    }
    return names;
}

void enter_stored_profile(const std::string &name)
{
    std::string group;
    profile_read_group(name, group);
    if (!profiledb_add(name, group))
        qv_log_print(kLogWarning,
                     "Profile %s is not listed: its name has an empty part between two dots or at its end\n",
                     name.c_str());
}

bool belongs_to(std::string_view name, std::string_view group)
{
    std::string its_group;
    return profile_read_group(name, its_group) == 0 && its_group == group;
}

} // namespace

int profiledb_load()
{
    profileDB = Tree::make();
    profileDB.set("Profile.current", hdfDB.get_or(kCurrentProfileApi, kDefaultProfile));
    profiledb_add(kDefaultProfile);
    mkdir(qv_sysroot_path(kProfileFolder).c_str(), 0777); // where it fails, reading the folder does too
    std::error_code error;
    for (const std::string &name : stored_profiles(error))
        enter_stored_profile(name);
    if (error)
        qv_log_print(kLogError, "%s: %s\n", kProfileFolder, error.message().c_str());
    return error ? 1 : 0;
}

void profiledb_destroy()
{
    profileDB.destroy();
}

bool profiledb_add(std::string_view name, std::string_view group)
{
    const std::string node = profile_node(name);
    if (!profileDB.root().set(node + ".name", name, Names::any))
        return false;
    return group.empty() || profileDB.root().set(node + ".group", group, Names::any);
}

void profiledb_remove(std::string_view name)
{
    profileDB.remove(profile_node(name));
}

std::size_t profiledb_count_group(std::string_view group)
{
    std::size_t count = 0;
    hdfutils_traverse_tree(profileDB.root(), {}, hdfutils_check_endnode, [&](Node leaf, const std::string &) {
        if (count < kMaxGroupProfiles && leaf.name() == "group" && leaf.text() == group)
            ++count;
    });
    return count;
}

int check_valid_profile(std::string_view name)
{
    const Node known = profileDB.find(profile_node(name) + ".name");
    return known.value() ? 1 : 0;
}

std::vector<std::string> profile_names_of_group(std::string_view group)
{
    std::vector<std::string> names;
    hdfutils_traverse_tree(profileDB.root(), {}, hdfutils_check_endnode, [&](Node leaf, const std::string &) {
        const std::string_view name = leaf.text();
        if (names.size() < kMaxGroupProfiles && name != kDefaultProfile && belongs_to(name, group))
            names.emplace_back(name);
    });
    std::sort(names.begin(), names.end());
    return names;
}

bool is_profile_name(std::string_view name)
{
    return !name.empty() && name.size() <= kMaxProfileNameBytes && name.front() != '.' &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string profile_file(std::string_view name)
{
    return std::string(kProfileFolder).append("/").append(name).append(kSuffix);
}

void profile_remove_files()
{
    std::error_code error; // of reading the folder, which profiledb_load() reports
    for (const std::string &entry : profile_entries(error)) {
        const std::string file = std::string(kProfileFolder) + "/" + entry;
        if (unlink(qv_sysroot_path(file).c_str()) != 0)
            qv_log_print(kLogError, "Can not remove %s: %s\n", file.c_str(), std::strerror(errno));
    }
}

int profile_exists(std::string_view name)
{
    return is_profile_name(name) && file_exists(qv_sysroot_path(profile_file(name))) ? 0 : 1;
}

int profile_read_hdf(std::string_view name, Tree &tree)
{
    if (name == kDefaultProfile)
        return 0;
    if (!is_profile_name(name))
        return 1;
    tree = Tree::make();
    const std::string file = profile_file(name);
    const HdfRead read = hdf_read_foreign_file(qv_sysroot_path(file), tree);
    if (read.result == HdfResult::error)
        qv_log_print(kLogError, "Error reading profile %s: %s\n", file.c_str(), read.detail.c_str());
    return read.result == HdfResult::ok ? 0 : 1;
}

int profile_read_group(std::string_view name, std::string &out)
{
    Tree profile;
    if (profile_read_hdf(name, profile) != 0)
        return 1;
    if (const std::optional<GroupLeaf> leaf = find_group_leaf(profile, "name"))
        out = cut(leaf->parent + ".name", kMaxValueBytes);
    return 0;
}

int profile_read_group_desc(std::string_view name, std::string &out)
{
    Tree profile;
    if (profile_read_hdf(name, profile) != 0)
        return 1;
    if (const std::optional<GroupLeaf> leaf = find_group_leaf(profile, "desc"))
        out = cut(collapse_percents(leaf->value), kMaxValueBytes);
    return 0;
}

} // namespace qvcd

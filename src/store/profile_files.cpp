#include "store/profile_files.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "base/text.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/hdfutils.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace qvcd {

std::map<std::string, std::string, std::greater<>> profileDB;

namespace {

constexpr std::string_view kSuffix = ".hdf";
constexpr std::string_view kGroupSuffix = "Profiles";
constexpr std::size_t kMaxProfileNameBytes = 250; // with the suffix it is a file name on every file system

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

// The folder's entries that hold ".hdf".
std::vector<std::string> profile_entries(std::error_code &error)
{
    std::vector<std::string> entries;
    std::filesystem::directory_iterator entry(qv_sysroot_path(kProfileFolder), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (std::string name = entry->path().filename().string(); name.find(kSuffix) != std::string::npos)
            entries.push_back(std::move(name));
    }
    return entries;
}

bool log_failure(const char *what, const std::string &file, int error)
{
    if (error)
        qv_log_print(kLogError, "Can not %s %s: %s\n", what, file.c_str(), std::strerror(error));
    return error == 0;
}

bool remove_entry(const std::string &entry)
{
    const std::string file = std::string(kProfileFolder) + "/" + entry;
    return log_failure("remove", file, remove_file(qv_sysroot_path(file)));
}

} // namespace

bool is_profile_name(std::string_view name)
{
    return !name.empty() && name.size() <= kMaxProfileNameBytes && name.front() != '.' &&
           name.find('/') == std::string_view::npos && is_one_line(name);
}

bool is_profile_selection(std::string_view api)
{
    if (api.starts_with(kUnitSelection))
        return true;
    const std::string_view group = api.substr(0, std::min(api.rfind('.'), api.size()));
    const std::string_view leaf = api.substr(std::min(group.size() + 1, api.size()));
    if (!group.ends_with(kGroupSuffix) || (leaf != "name" && leaf != "desc"))
        return false;
    return meta_get(join_name(group, "name"), "type").value_or("").find("profile2") != std::string::npos;
}

std::string profile_file(std::string_view name)
{
    return std::string(kProfileFolder).append("/").append(name).append(kSuffix);
}

int profiledb_load()
{
    profileDB.clear();
    mkdir(qv_sysroot_path(kProfileFolder).c_str(), 0777); // where it fails, reading the folder does too
    std::error_code error;
    for (const std::string &entry : profile_entries(error)) {
        if (entry.ends_with(kSuffix))
            profiledb_update(entry.substr(0, entry.size() - kSuffix.size()));
    }
    if (error)
        qv_log_print(kLogError, "%s: %s\n", kProfileFolder, error.message().c_str());
    return error ? 1 : 0;
}

void profiledb_destroy()
{
    profileDB.clear();
}

void profiledb_update(const std::string &name)
{
    if (profile_exists(name) != 0) {
        profileDB.erase(name);
        return;
    }
    std::string group;
    profile_read_group(name, group); // one that is no good is listed, too: it can be removed
    profileDB[name] = group;
}

std::string profile_current()
{
    std::string name = hdfDB.get_or(kCurrentProfileApi, "");
    return name.empty() ? kDefaultProfile : name;
}

std::vector<std::string> profile_names()
{
    std::vector<std::string> names = {kDefaultProfile};
    for (const auto &[name, group] : profileDB)
        names.push_back(name);
    return names;
}

std::size_t profiledb_count_group(std::string_view group)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(profileDB, [&](const auto &profile) { return profile.second == group; }));
}

int check_valid_profile(std::string_view name)
{
    // A folder that could not be read for once makes no selected profile invalid.
    return name == kDefaultProfile || profileDB.contains(name) || profile_exists(name) == 0 ? 1 : 0;
}

std::vector<std::string> profile_names_of_group(std::string_view group)
{
    std::vector<std::string> names;
    const auto current = profileDB.find(profile_current());
    if (current != profileDB.end() && current->second == group)
        names.push_back(current->first);
    for (const auto &[name, its_group] : profileDB) {
        if (its_group == group && names.size() < kMaxGroupProfiles)
            names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

int profile_exists(std::string_view name)
{
    const bool can_exist = is_profile_name(name) && name != kDefaultProfile;
    return can_exist && file_exists(qv_sysroot_path(profile_file(name))) ? 0 : 1;
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

bool profile_write_hdf(const std::string &name, const Tree &document, FileKind kind)
{
    if (hdf_text(document.root()).size() > kMaxProfileBytes)
        return log_failure("write", profile_file(name), EFBIG);
    return hdf_write_file(qv_sysroot_path(profile_file(name)), document.root(), kind);
}

std::optional<ProfileText> profile_read_text(const std::string &name)
{
    const std::string file = qv_sysroot_path(profile_file(name));
    struct stat st {};
    auto text = read_file(file);
    if (!text || stat(file.c_str(), &st) != 0)
        return std::nullopt;
    return ProfileText{std::move(*text), st.st_mode & 0777U};
}

bool profile_write_text(const std::string &name, const ProfileText &file)
{
    const std::string path = profile_file(name);
    return log_failure("write", path, replace_secret_file(qv_sysroot_path(path), file.text, file.mode));
}

bool profile_remove_file(const std::string &name)
{
    return remove_entry(name + std::string(kSuffix));
}

bool profile_remove_files()
{
    std::error_code error; // of reading the folder, which profiledb_load() reports
    bool removed = true;
    for (const std::string &entry : profile_entries(error))
        removed &= remove_entry(entry);
    return removed;
}

std::string profile_group(const Tree &document)
{
    const std::optional<GroupLeaf> leaf = find_group_leaf(document, "name");
    return leaf ? cut(leaf->parent + ".name", kMaxValueBytes) : std::string();
}

int profile_read_group(std::string_view name, std::string &out)
{
    Tree profile;
    if (profile_read_hdf(name, profile) != 0)
        return 1;
    if (std::string group = profile_group(profile); !group.empty())
        out = std::move(group);
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

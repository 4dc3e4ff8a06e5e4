#include "store/profile_files.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "base/notify.h"
#include "base/replacement.h"
#include "base/text.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/former.h"
#include "store/hdfutils.h"
#include "store/meta.h"

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

bool log_failure(const char *what, const std::string &file, int error)
{
    if (error)
        qv_log_print(kLogError, "Can not %s %s: %s\n", what, file.c_str(), std::strerror(error));
    return error == 0;
}

bool can_exist(std::string_view name)
{
    return is_profile_name(name) && name != kDefaultProfile;
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

// The folder's entries that hold ".hdf"; nothing, after logging why, when it cannot be read.
std::optional<std::vector<std::string>> profile_entries()
{
    std::vector<std::string> entries;
    std::error_code error;
    std::filesystem::directory_iterator entry(qv_sysroot_path(kProfileFolder), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (std::string name = entry->path().filename().string(); name.find(kSuffix) != std::string::npos)
            entries.push_back(std::move(name));
    }
    if (error == std::errc::no_such_file_or_directory)
        return entries;
    log_failure("read", kProfileFolder, error.value());
    return error ? std::nullopt : std::optional(std::move(entries));
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
    mkdir(qv_sysroot_path(kProfileFolder).c_str(), 0777); // where it fails, reading the folder does too
    const auto entries = profile_entries();
    if (!entries)
        return 1;
    profileDB.clear();
    for (const std::string &entry : *entries) {
        const std::string name = entry.substr(0, entry.size() - std::min(kSuffix.size(), entry.size()));
        if (!entry.ends_with(kSuffix) || !can_exist(name))
            continue;
        std::string group;
        profile_read_group(name, group); // one that is no good is listed, too: it can be removed
        profileDB[name] = group;
    }
    return 0;
}

void profiledb_destroy()
{
    profileDB.clear();
}

void profiledb_enter(const std::string &name, const Tree &document)
{
    profileDB[name] = profile_group(document);
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

void publish_profile(std::string_view name, std::string_view what)
{
    notify_publish({"profile", name, what, Secret::no, std::nullopt, {kLevel1Bits}});
}

int profile_exists(std::string_view name)
{
    if (!can_exist(name))
        return 1;
    const std::string file = profile_file(name);
    const int error = look_for_file(qv_sysroot_path(file));
    if (error == ENOENT || error == ENOTDIR)
        return 1;
    return log_failure("look for", file, error) ? 0 : 2;
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
    if (read.result != HdfResult::ok)
        return 1;
    rename_former(tree);
    return 0;
}

FileResult profile_write_hdf(const std::string &name, const Tree &document, FileKind kind)
{
    if (hdf_text(document.root()).size() > kMaxProfileBytes) {
        log_failure("write", profile_file(name), EFBIG);
        return {EFBIG, false};
    }
    const FileResult result = hdf_write_file(qv_sysroot_path(profile_file(name)), document.root(), kind);
    if (result.changed) {
        profiledb_enter(name, document);
        publish_profile(name, "save");
    }
    return result;
}

std::optional<ProfileText> profile_read_text(const std::string &name)
{
    const std::string file = profile_file(name);
    struct stat st {};
    FileText text = read_whole_file(qv_sysroot_path(file));
    if (text.missing())
        return std::nullopt;
    if (!text.error && stat(qv_sysroot_path(file).c_str(), &st) != 0)
        text.error = errno;
    if (!log_failure("read", file, text.error))
        return std::nullopt;
    const auto listed = profileDB.find(name);
    return ProfileText{std::move(text.text), st.st_mode & 0777U,
                       listed == profileDB.end() ? "" : listed->second};
}

FileResult profile_write_text(const std::string &name, const ProfileText &file)
{
    const std::string path = profile_file(name);
    const FileResult result = replace_secret_file(qv_sysroot_path(path), file.text, file.mode);
    log_failure("write", path, result.error);
    if (result.changed) {
        profileDB[name] = file.group;
        publish_profile(name, "save");
    }
    return result;
}

FileResult profile_remove_file(const std::string &name)
{
    const std::string file = profile_file(name);
    const FileResult result = remove_file(qv_sysroot_path(file));
    log_failure("remove", file, result.error);
    if (result.changed || result.error == ENOENT)
        profileDB.erase(name);
    if (result.changed)
        publish_profile(name, "remove");
    return result;
}

FileResult profile_remove_files()
{
    const auto entries = profile_entries();
    FileResult result{entries ? 0 : EIO, entries.has_value()};
    for (const std::string &entry : entries.value_or(std::vector<std::string>())) {
        const std::string file = std::string(kProfileFolder) + "/" + entry;
        const FileResult removed = remove_file(qv_sysroot_path(file));
        log_failure("remove", file, removed.error);
        if (removed.changed && entry.ends_with(kSuffix)) {
            const std::string name = entry.substr(0, entry.size() - kSuffix.size());
            profileDB.erase(name);
            publish_profile(name, "remove");
        }
        result.error = removed.error ? removed.error : result.error;
        result.changed &= removed.changed;
    }
    if (!result.error && !is_flushed(qv_sysroot_path(profile_file("any")))) {
        result.error = flush_folder(qv_sysroot_path(kProfileFolder)); // what was removed before
        log_failure("write", kProfileFolder, result.error);
    }
    if (result.changed)
        profileDB.clear();
    return result;
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

#include "commands/profile_members.h"

#include "base/save_lock.h"
#include "base/text.h"
#include "commands/profile.h"
#include "funcs/file_writes.h"
#include "funcs/generic_readers.h"
#include "platform/log.h"
#include "store/database.h"
#include "store/profile_files.h"

#include <algorithm>
#include <optional>

namespace qvcd {

namespace {

constexpr std::size_t kMaxPrefixes = 15; // of the settings that a profile holds besides its group

// The two APIs of a group, in the settings and in their file.
struct Selection {
    std::string file;
    std::string name;
    std::string desc;

    std::string prefix() const { return meta_get_parent(name).value_or(""); }
    void set(const std::string &name_value, const std::string &desc_value) const
    {
        FileWrites writes;
        set_one(desc, desc_value, writes);
        set_one(name, name_value, writes);
        const SaveLock lock;
        writes.commit();
        writes.log_failures("write");
    }

  private:
    void set_one(const std::string &api, const std::string &value, FileWrites &writes) const
    {
        if (hdfDB.get(api))
            hdfDB.set(api, value);
        if (const auto attr = meta_get(api, "attr"))
            writes.add_to(file, "quotedkv_wfunc", {*attr, value});
    }
};

Selection selection_of(std::string_view file, std::string_view api)
{
    const std::string prefix = meta_get_parent(api).value_or("");
    return {std::string(file), std::string(api), join_name(prefix, "desc")};
}

Args save_arguments(const std::string &short_name, const Selection &selection)
{
    Args args = {"save", short_name, selection.prefix()};
    std::vector<std::string> words =
        split_words(meta_get(selection.name, "add").value_or(""), kListSeparators);
    const std::size_t end = std::min(words.size(), kMaxPrefixes + 1); // the first is the function's own name
    for (std::size_t i = 1; i < end; ++i)
        args.push_back(std::move(words[i]));
    return args;
}

int run_profile(Request &request, Args args, std::FILE *out)
{
    Request internal = request.as(kInternalMask);
    return command_profile(internal, args, out);
}

// The name of the first API whose setting is another than the profile's.
std::optional<std::string> first_mismatch(const Tree &profile)
{
    std::optional<std::string> found;
    const auto compare = [&](Node leaf, const std::string &parent) {
        if (found || !leaf.value())
            return;
        std::string api = join_name(parent, leaf.name());
        const auto current = hdfDB.get(api);
        const auto stored = url_unescape(leaf.text());
        if (current && current != stored.value_or(std::string(leaf.text())) && !meta_is_true(api, "dynamic"))
            found = std::move(api);
    };
    hdfutils_traverse_tree(profile.root(), {}, hdfutils_check_endnode, compare);
    return found;
}

// True when nothing differs, or the profile cannot be read.
bool is_in_force(const std::string &profile_name)
{
    Tree profile;
    if (profile_read_hdf(profile_name, profile) != 0)
        return true;
    const std::optional<std::string> mismatch = first_mismatch(profile);
    if (!mismatch)
        return true;
    qv_log_print(kLogInfo, "First mismatched param: %s\n", mismatch->c_str());
    qv_log_print(kLogInfo, "Profile customized: %s\n", profile_name.c_str());
    return false;
}

} // namespace

int profile_addfunc(Request &request, std::string_view file, std::string_view api, std::string_view text,
                    std::FILE *)
{
    const Selection selection = selection_of(file, api);
    const std::string description(text);
    const std::string short_name = to_short_name(text);
    if (profile_exists(short_name) == 0)
        run_profile(request, {"remove", short_name}, nullptr);
    const Args save = save_arguments(short_name, selection);
    qv_log_print(kLogDebug, "profile add func: param=%s value=%s\n", selection.name.c_str(),
                 description.c_str());
    if (description.find('\n') != std::string::npos)
        return 1; // its file holds one line a value
    const std::string old_name = hdfDB.get_or(selection.name, "");
    const std::string old_desc = hdfDB.get_or(selection.desc, "");
    selection.set(short_name, description);
    if (run_profile(request, save, nullptr) == 0)
        return 0;
    qv_log_print(kLogError, "Error executing profile command\n");
    selection.set(old_name, old_desc);
    return 1;
}

int profile_removefunc(Request &request, std::string_view file, std::string_view api,
                       std::string_view profile, std::FILE *out)
{
    const Selection selection = selection_of(file, api);
    const std::string name(profile);
    qv_log_print(kLogInfo, "profile remove func: param=%s value=%s\n", selection.name.c_str(), name.c_str());
    if (run_profile(request, {"remove", name}, out) != 0)
        qv_log_print(kLogError, "Error executing profile command");
    if (hdfDB.get(selection.name) == name)
        selection.set("", "");
    return 0;
}

std::optional<std::string> profile_rfunc(Request &request, const char *file, const char *attr)
{
    const std::string stored = quoted_rfunc(request, file, attr).value_or("");
    const std::string profile_name = to_short_name(stored);
    return !profile_name.empty() && is_in_force(profile_name) ? stored : PROFILE_CUSTOM;
}

} // namespace qvcd

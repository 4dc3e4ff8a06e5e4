#include "commands/profile_members.h"

#include "base/text.h"
#include "commands/profile.h"
#include "commands/save.h"
#include "commands/targets.h"
#include "funcs/check_map.h"
#include "funcs/file_writes.h"
#include "funcs/generic_readers.h"
#include "platform/log.h"
#include "store/profile_files.h"

#include <algorithm>
#include <optional>

namespace qvcd {

namespace {

constexpr std::size_t kMaxPrefixes = 15; // of the settings that a profile holds besides its group

constexpr char error_invalid_name[] = "##Invalid arguments#";
constexpr char error_profile_not_found[] = "##Profile not found#";

// The APIs of a group that say which profile is selected.
struct Selection {
    explicit Selection(std::string_view api)
        : prefix(meta_get_parent(api).value_or("")), name(api), desc(join_name(prefix, "desc"))
    {
    }

    std::string prefix;
    std::string name;
    std::string desc;
};

struct Selected {
    std::string name;
    std::string desc;
};

Selected selected(const Selection &selection)
{
    return {hdfDB.get_or(selection.name, ""), hdfDB.get_or(selection.desc, "")};
}

void set_modified(const Request &request, const std::string &name, const std::string &value)
{
    Api *api = find_api(name);
    if (!api)
        return;
    flag_unsaved(*api, request.caller.session);
    api->store(value);
}

void set_selected(const Request &request, const Selection &selection, const Selected &value)
{
    set_modified(request, selection.desc, value.desc);
    set_modified(request, selection.name, value.name);
}

int save_selected(Request &request, const Selection &selection)
{
    Args names;
    for (const std::string &api : {selection.desc, selection.name}) {
        if (name_kind(api) == NameKind::api)
            names.push_back(api);
    }
    Request internal = request.as(kInternalMask);
    return names.empty() ? 0 : command_save(internal, names, nullptr); // no name is not all names
}

bool is_modified(const std::string &api)
{
    return meta_get_this_level(api, "mod").value_or("0") != "0";
}

enum class Selecting {
    saved,
    undone,   // it cannot be saved: the settings and their file are as before
    modified, // the file may have the new one, and cannot be written: the settings have the old one, as
              // modified
};

Selecting select(Request &request, const Selection &selection, const Selected &value)
{
    const Selected before = selected(selection);
    const bool was_saved = !is_modified(selection.name) && !is_modified(selection.desc);
    set_selected(request, selection, value);
    if (save_selected(request, selection) == 0)
        return Selecting::saved;
    set_selected(request, selection, before);
    const bool undone = was_saved && save_selected(request, selection) == 0;
    return undone || (is_on_disk(selection.name) && is_on_disk(selection.desc)) ? Selecting::undone
                                                                                : Selecting::modified;
}

// Who may change one group may not touch the profiles of others. A file that is no good belongs to nobody.
bool is_of_others(const std::string &profile, const std::string &group)
{
    std::string its_group;
    return profile_read_group(profile, its_group) == 0 && its_group != group;
}

std::vector<std::string> members_of(const Selection &selection)
{
    std::vector<std::string> names =
        split_words(meta_get(selection.name, "add").value_or(""), kListSeparators);
    names.resize(std::min(names.size(), kMaxPrefixes + 1));
    if (names.empty())
        names.emplace_back();
    names.front() = selection.prefix; // in place of the function's own name
    return names;
}

// What the profile holds: the group's settings, and itself as the selection.
Settings settings_of_profile(Request &request, const Selection &selection, const Selected &value)
{
    Settings settings;
    take_settings(request.as(kInternalMask), members_of(selection), nullptr, settings);
    const auto is_selection = [&](const Setting &s) {
        return s.api == selection.name || s.api == selection.desc;
    };
    std::erase_if(settings, is_selection);
    if (!settings.empty())
        settings.insert(settings.begin(), {{selection.name, value.name}, {selection.desc, value.desc}});
    return settings;
}

void put_back(const std::string &name, const std::optional<ProfileText> &file)
{
    if (file)
        profile_write_text(name, *file);
    else
        profile_remove_file(name);
}

// What a load would set, compared with what is set.
bool is_in_force(const std::string &profile_name)
{
    Tree profile;
    if (profile_read_hdf(profile_name, profile) != 0)
        return false;
    for (const Setting &setting : settings_of(profile)) {
        if (is_profile_selection(setting.api) || hdfDB.get(setting.api) == setting.value)
            continue;
        qv_log_print(kLogInfo, "First mismatched param: %s\n", setting.api.c_str());
        qv_log_print(kLogInfo, "Profile customized: %s\n", profile_name.c_str());
        return false;
    }
    return true;
}

} // namespace

int profile_addfunc(Request &request, std::string_view, std::string_view api, std::string_view text,
                    std::FILE *out)
{
    const Selection selection(api);
    const Selected value = {to_short_name(text), std::string(text)};
    qv_log_print(kLogDebug, "profile add func: param=%s value=%s\n", selection.name.c_str(),
                 value.desc.c_str());
    if (!is_profile_name(value.name) || value.name == kDefaultProfile ||
        is_of_others(value.name, selection.name))
        return refuse(selection.name, error_invalid_name, out);
    if (const auto error = cfuncmap_check(selection.desc, value.desc))
        return refuse(selection.desc, *error, out);
    const std::optional<ProfileText> before = profile_read_text(value.name);
    if (!before && profile_exists(value.name) != 1)
        return refuse(selection.name, error_invalid_name, out);
    if (store_profile(value.name, settings_of_profile(request, selection, value), value.name, out) != 0)
        return 1;
    const Selecting result = select(request, selection, value);
    if (result == Selecting::saved) {
        flag_applied(selection.name); // the settings are the profile's
        return 0;
    }
    qv_log_print(kLogError, "Error executing profile command\n");
    if (result == Selecting::undone) // else the file may name it
        put_back(value.name, before);
    return refuse(selection.name, kSaveFailed, out);
}

int profile_removefunc(Request &request, std::string_view, std::string_view api, std::string_view profile,
                       std::FILE *out)
{
    const Selection selection(api);
    const Selected before = selected(selection);
    const std::string name(profile);
    qv_log_print(kLogInfo, "profile remove func: param=%s value=%s\n", selection.name.c_str(), name.c_str());
    if (is_of_others(name, selection.name)) {
        reply_line(out, error_profile_not_found);
        return 0;
    }
    const bool was_there = profile_exists(name) != 1;
    const bool was_selected = before.name == name;
    if (was_selected && select(request, selection, {}) != Selecting::saved)
        return refuse(selection.name, kSaveFailed, out);
    Request internal = request.as(kInternalMask);
    Args remove = {"remove", name};
    if (command_profile(internal, remove, out) == 0)
        return 0;
    qv_log_print(kLogError, "Error executing profile command\n");
    if (was_selected && profile_exists(name) != 1)
        select(request, selection, before);
    return was_there ? 1 : 0;
}

std::optional<std::string> profile_rfunc(Request &request, const char *file, const char *attr)
{
    const std::string stored = quoted_rfunc(request, file, attr).value_or("");
    const std::string name = profile_exists(stored) == 0 ? stored : to_short_name(stored);
    if (name.empty())
        return PROFILE_CUSTOM;
    return profile_exists(name) != 0 || is_in_force(name) ? stored : PROFILE_CUSTOM;
}

} // namespace qvcd

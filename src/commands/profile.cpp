#include "commands/profile.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "base/reply.h"
#include "commands/change.h"
#include "commands/export.h"
#include "commands/get.h"
#include "commands/import.h"
#include "commands/profile_members.h"
#include "commands/save.h"
#include "funcs/add_remove_map.h"
#include "funcs/apply_map.h"
#include "funcs/read_map.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/database.h"
#include "store/profile_files.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace qvcd {

namespace {

int profile_list(Request &request, Args &argv, std::FILE *out);
int profile_read(Request &request, Args &argv, std::FILE *out);
int profile_load(Request &request, Args &argv, std::FILE *out);
int profile_save(Request &request, Args &argv, std::FILE *out);
int profile_copy(Request &request, Args &argv, std::FILE *out);
int profile_remove(Request &request, Args &argv, std::FILE *out);
int profile_reset(Request &request, Args &argv, std::FILE *out);
int cmd_profile_init();
int cmd_profile_exit();

constexpr SubCommand kSubCommands[] = {
    {"list", profile_list, "List all profiles"},
    {"read", profile_read, "Display a profile configuration"},
    {"load", profile_load, "Load a profile from disk"},
    {"save", profile_save, "Save a profile to disk"},
    {"copy", profile_copy, "Duplicate a profile"},
    {"remove", profile_remove, "Remove a profile"},
    {"reset", profile_reset, "Reset the profile system, in effect, remove all profiles."},
};

} // namespace

// The texts are known to clients, spelling included.
const CommandRecord profileRecord = {
    .name = "profile",
    .init = cmd_profile_init,
    .exit = cmd_profile_exit,
    .handler = command_profile,
    .summary = "Operations relating to profiles",
    .synopsis =
        "profile.list\n"
        "profile.read [<profile>]\n"
        "profile.load [<profile>]\n"
        "profile.save <profile>\n"
        "profile.copy <new_profile> <profile>\n"
        "profile.remove <profile>\n"
        "\n"
        "For commands with optional <profile> arguement, the current loaded profile will be used.  The "
        "profile \"default\" is reserved for the factory settings of the system and can not be used as "
        "a profile name.",
    .return_values = "list - Returns a list of all the profiles that have been saved.\n"
                     "read - Prints all the APIs saved in the profile\n"
                     "load - Prints all the APIs in the profile that affects the current system\n"
                     "save - Prints the profile name if successfully saved\n"
                     "copy - Prints the profile name if successfully copied\n"
                     "remove - Prints the profile name if successfully removed\n",
    .errors = "##Invalid arguments#\n"
              "##Profile not found#\n"
              "##Error loading profile#\n"
              "##Can not use default profile#\n"
              "##Error copying profile#",
    .notes = "This command allows you to take a snapshot of the system settings.  You can 'save' it as a "
             "profile and 'load' it for later use.  You can also 'read' the content of a profile.  There are "
             "some management commands to allow you to 'copy' a profile to another name and to 'remove' a "
             "profile from the list. Profiles do not have to contain the entire user settings.  You can also "
             "specify a subset of the settings in the 'save' command.  The 'profile' command is used to "
             "manipulate the profiles.  If you want to switch between profiles, you would use the "
             "System.Configuration.Profiles.current API.",
    .sub_commands = kSubCommands,
};

namespace {

constexpr char error_invalid_arguments[] = "##Invalid arguments#";
constexpr char error_profile_not_found[] = "##Profile not found#";
constexpr char error_loading_profile[] = "##Error loading profile#";
constexpr char error_can_not_use_default[] = "##Can not use default profile#";
constexpr char error_copying_profile[] = "##Error copying profile#";
constexpr char error_removing_profile[] = "##Error removing profile#";
constexpr char error_maxed_profiles[] = "##Max profiles created for group#";

constexpr char kExportEverything[] = "3"; // mode of export
constexpr char kImportAsModified[] = "1"; // mode of import
constexpr char kSelection[] = "System.Configuration.Profiles";
constexpr unsigned kUserWriteBits = 0x222; // what the maker alone may write is no user's profile

int refuse(std::FILE *out, const char *error)
{
    reply_line(out, error);
    return 1;
}

void reply_name(std::FILE *out, const std::string &profile, const std::string &name)
{
    reply_value(out, "Profile." + profile + ".name", name);
}

// None when nothing is selected, or the factory settings are.
std::optional<std::string> get_current_profile()
{
    std::string name = hdfDB.get_or(kCurrentProfileApi, "");
    if (name.empty() || name == kDefaultProfile)
        return std::nullopt;
    return name;
}

std::optional<std::string> argument_or_current(const Args &argv, std::size_t i)
{
    return i < argv.size() ? argv[i] : get_current_profile();
}

void enter(const std::string &name, const std::string &group)
{
    if (!profiledb_add(name, group))
        qv_log_print(kLogWarning, "Profile %s is stored but cannot be listed\n", name.c_str());
}

int cmd_profile_init()
{
    rfuncmap_set_profile_reader(profile_rfunc);
    addfuncmap_set_profile(profile_addfunc);
    removefuncmap_set_profile(profile_removefunc);
    afuncmap_set_profile_loader(load_profile);
    return profiledb_load();
}

int cmd_profile_exit()
{
    profiledb_destroy();
    return 0;
}

int profile_list(Request &, Args &argv, std::FILE *out)
{
    if (argv.size() < 2) {
        hdfutils_dump(profileDB.root(), "", out);
        return 0;
    }
    for (const std::string &name : profile_names_of_group(argv[1]))
        reply_name(out, name, name);
    return 0;
}

// Whether an API is private counts only where "dynamic" is spoken of at all: clients rely on what is shown.
bool is_shown(const std::string &api)
{
    MetaApi meta(api);
    if ((meta.perm() & kUserWriteBits) == 0)
        return false;
    const auto dynamic = meta.get("dynamic");
    if (!dynamic)
        return true;
    return *dynamic != "true" && !meta.is_true("private");
}

int profile_read(Request &request, Args &argv, std::FILE *out)
{
    const std::optional<std::string> name = argument_or_current(argv, 1);
    if (!name || *name == kDefaultProfile) {
        Args everything;
        command_getd(request, everything, out);
        return 0;
    }
    if (!is_profile_name(*name))
        return refuse(out, error_invalid_arguments);
    if (profile_exists(*name) != 0)
        return refuse(out, error_profile_not_found);
    Tree profile;
    if (profile_read_hdf(*name, profile) != 0)
        return refuse(out, error_loading_profile);
    const auto print = [&](Node leaf, const std::string &parent) {
        const std::string api = join_name(parent, leaf.name());
        if (is_shown(api))
            reply_value(out, api, leaf.text());
    };
    hdfutils_traverse_tree(profile.root(), {}, hdfutils_check_endnode, print);
    return 0;
}

int profile_load(Request &request, Args &argv, std::FILE *out)
{
    const std::optional<std::string> name = argument_or_current(argv, 1);
    if (!name)
        return 1;
    if (!is_profile_name(*name))
        return refuse(out, error_invalid_arguments);
    if (profile_exists(*name) != 0)
        return refuse(out, error_profile_not_found);
    Args everything;
    Request internal = request.as(kInternalMask);
    command_revert(internal, everything, out);
    Args import = {profile_file(*name)};
    if (command_import(request, import, out) != 0)
        return refuse(out, error_loading_profile);
    reply_name(out, *name, *name);
    return 0;
}

// The group that a save belongs to; empty when its first prefix is none of a group.
std::string group_of_save(const Args &argv)
{
    if (argv.size() < 3 || argv[2].find(".Profiles") == std::string::npos)
        return {};
    return cut(argv[2] + ".name", kMaxValueBytes);
}

int profile_save(Request &request, Args &argv, std::FILE *out)
{
    if (argv.size() < 2 || !is_profile_name(argv[1]))
        return refuse(out, error_invalid_arguments);
    const std::string name = argv[1];
    const std::string group = group_of_save(argv);
    if (!group.empty() && profiledb_count_group(group) >= kMaxGroupProfiles)
        return refuse(out, error_maxed_profiles);
    Args exported = {profile_file(name), kExportEverything};
    if (argv.size() > 2 && !argv[2].empty())
        exported.insert(exported.end(), argv.begin() + 2, argv.end());
    if (const int result = command_export(request, exported, out))
        return result;
    enter(name, group);
    reply_name(out, name, name);
    if (!group.empty())
        reply_value(out, "Profile." + name + ".group", group);
    return 0;
}

// With the mode of the source: a profile may hold passwords.
bool copy_profile_file(const std::string &from, const std::string &to)
{
    const std::string source = qv_sysroot_path(profile_file(from));
    struct stat st {};
    if (stat(source.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    const auto text = read_file(source);
    if (!text || text->size() != static_cast<std::size_t>(st.st_size))
        return false;
    const int error = replace_secret_file(qv_sysroot_path(profile_file(to)), *text, st.st_mode & 0777U);
    if (error)
        qv_log_print(kLogError, "Can not write %s: %s\n", profile_file(to).c_str(), std::strerror(error));
    return error == 0;
}

// The first one's file goes onto the second one's, whatever the synopsis calls them.
int profile_copy(Request &, Args &argv, std::FILE *out)
{
    if (argv.size() < 2 || !is_profile_name(argv[1]))
        return refuse(out, error_invalid_arguments);
    const std::optional<std::string> target = argument_or_current(argv, 2);
    if (!target)
        return 1;
    if (!is_profile_name(*target))
        return refuse(out, error_invalid_arguments);
    if (!copy_profile_file(argv[1], *target))
        return refuse(out, error_copying_profile);
    enter(*target, "");
    reply_name(out, argv[1], *target);
    return 0;
}

bool remove_profile_file(const std::string &name)
{
    const std::string file = profile_file(name);
    if (unlink(qv_sysroot_path(file).c_str()) == 0)
        return true;
    qv_log_print(kLogError, "Can not remove %s: %s\n", file.c_str(), std::strerror(errno));
    return false;
}

void select_default(Request &request, std::FILE *out)
{
    profileDB.set("Profile.current", kDefaultProfile);
    Args selection = {std::string(kCurrentProfileApi) + "=" + kDefaultProfile};
    command_update(request, selection, out);
}

int profile_remove(Request &request, Args &argv, std::FILE *out)
{
    const std::optional<std::string> name = argument_or_current(argv, 1);
    if (name == kDefaultProfile)
        return refuse(out, error_can_not_use_default);
    if (!name || !is_profile_name(*name))
        return refuse(out, error_invalid_arguments);
    if (profile_exists(*name) != 0)
        return refuse(out, error_profile_not_found);
    if (!remove_profile_file(*name))
        return refuse(out, error_removing_profile);
    profiledb_remove(*name);
    const bool was_current = get_current_profile() == name;
    if (was_current)
        select_default(request, out);
    const std::string now = was_current ? kDefaultProfile : *name;
    reply_name(out, now, now);
    return 0;
}

int profile_reset(Request &, Args &, std::FILE *)
{
    profile_remove_files();
    return profiledb_load();
}

} // namespace

int command_profile(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(profileRecord, request, argv, out, SubResult::hand_on);
}

int load_profile(Request &request)
{
    const std::optional<std::string> name = get_current_profile();
    if (!name)
        return 0;
    if (profile_exists(*name) != 0)
        return 1;
    Args import = {profile_file(*name), kImportAsModified};
    Request internal = request.as(kInternalMask);
    command_import(internal, import, nullptr);
    // A profile holds the selection of the time when it was saved.
    Args selection = {kSelection};
    command_revert(internal, selection, nullptr);
    Args everything;
    command_save(internal, everything, nullptr);
    profileDB.set("Profile.current", *name);
    return 0;
}

} // namespace qvcd

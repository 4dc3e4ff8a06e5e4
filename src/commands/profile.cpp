#include "commands/profile.h"

#include "base/reply.h"
#include "commands/change.h"
#include "commands/get.h"
#include "commands/profile_members.h"
#include "commands/profile_switch.h"
#include "commands/profile_transfer.h"
#include "funcs/add_remove_map.h"
#include "funcs/apply_map.h"
#include "funcs/read_map.h"
#include "store/database.h"
#include "store/profile_files.h"

#include <optional>

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
    {"export", profile_export, "Export a profile", false},
    {"import", profile_import, "Import a profile", false},
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
        "profile.copy <profile> <new_profile>\n"
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
    .recorded = ChangeNotes::Level::all,
};

namespace {

constexpr char error_invalid_arguments[] = "##Invalid arguments#";
constexpr char error_profile_not_found[] = "##Profile not found#";
constexpr char error_loading_profile[] = "##Error loading profile#";
constexpr char error_can_not_use_default[] = "##Can not use default profile#";
constexpr char error_copying_profile[] = "##Error copying profile#";
constexpr char error_removing_profile[] = "##Error removing profile#";
constexpr char error_maxed_profiles[] = "##Max profiles created for group#";

constexpr char error_nothing_to_save[] = "##Nothing to save#";

int refuse(std::FILE *out, std::string_view error)
{
    reply_line(out, error);
    return 1;
}

void reply_name(std::FILE *out, const std::string &profile, const std::string &name)
{
    reply_value(out, "Profile." + profile + ".name", name);
}

void reply_group(std::FILE *out, const std::string &profile)
{
    const auto known = profileDB.find(profile);
    if (known != profileDB.end() && !known->second.empty())
        reply_value(out, "Profile." + profile + ".group", known->second);
}

// The error that keeps a name from being that of a new profile; null: nothing does.
const char *name_error(const std::string &name)
{
    if (name == kDefaultProfile)
        return error_can_not_use_default;
    return is_profile_name(name) ? nullptr : error_invalid_arguments;
}

std::optional<std::string> argument_or_current(const Args &argv, std::size_t i)
{
    if (i < argv.size())
        return argv[i];
    std::string current = profile_current();
    return current == kDefaultProfile ? std::nullopt : std::optional(std::move(current));
}

std::optional<std::string> known_or_current(const Args &argv)
{
    return argv.size() > 1 ? known_profile(argv[1]) : argument_or_current(argv, 1);
}

// True for a group that has no room for another profile; `again` is the name of one that would only be
// replaced. What looks like a group in a document need not be one of the settings.
bool is_full(const std::string &group, const std::string &again)
{
    const auto known = profileDB.find(again);
    const bool has_room = known != profileDB.end() && known->second == group;
    return !has_room && is_profile_selection(group) && profiledb_count_group(group) >= kMaxGroupProfiles;
}

int cmd_profile_init()
{
    rfuncmap_set_profile_reader(profile_rfunc);
    addfuncmap_set_profile(profile_addfunc);
    removefuncmap_set_profile(profile_removefunc);
    afuncmap_set_profile_loader(load_selected_profile);
    return profiledb_load();
}

int cmd_profile_exit()
{
    profiledb_destroy();
    return 0;
}

int profile_list(Request &, Args &argv, std::FILE *out)
{
    const bool all = argv.size() < 2;
    if (all)
        reply_value(out, "Profile.current", profile_current());
    for (const std::string &name : all ? profile_names() : profile_names_of_group(argv[1])) {
        reply_name(out, name, name);
        if (all)
            reply_group(out, name);
    }
    return 0;
}

// Whether an API is private counts only where "dynamic" is spoken of at all: clients rely on what is shown.
bool is_shown(const Request &request, const std::string &api)
{
    MetaApi meta(api);
    if ((meta.perm() & kUserWriteBits) == 0 || !meta.readable_by(request.mask))
        return false;
    const auto dynamic = meta.get("dynamic");
    if (!dynamic)
        return true;
    return *dynamic != "true" && !meta.is_true("private");
}

int profile_read(Request &request, Args &argv, std::FILE *out)
{
    const std::optional<std::string> name = known_or_current(argv);
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
        if (is_shown(request, api))
            reply_value(out, api, shown_value(api, leaf.text()));
    };
    hdfutils_traverse_tree(profile.root(), {}, hdfutils_check_endnode, print);
    return 0;
}

int profile_load(Request &request, Args &argv, std::FILE *out)
{
    const std::optional<std::string> name = known_or_current(argv);
    if (!name)
        return 1;
    if (!is_profile_name(*name))
        return refuse(out, error_invalid_arguments);
    if (profile_exists(*name) != 0)
        return refuse(out, error_profile_not_found);
    if (!switch_to_profile(request, *name, "", SetMode::set, out))
        return refuse(out, error_loading_profile);
    note_event(request);
    publish_profile(*name, "load");
    reply_name(out, *name, *name);
    return 0;
}

int profile_save(Request &request, Args &argv, std::FILE *out)
{
    if (argv.size() < 2)
        return refuse(out, error_invalid_arguments);
    const std::string name = argv[1];
    if (const char *error = name_error(name))
        return refuse(out, error);
    Settings settings;
    if (take_settings(request, Args(argv.begin() + 2, argv.end()), out, settings) != 0)
        return 1;
    if (store_profile(name, settings, "", out) != 0) // no room for a member either: clients know it so
        return 1;
    reply_name(out, name, name);
    reply_group(out, name);
    return 0;
}

// The first one's file goes onto the second one's, whatever the synopsis calls them.
int profile_copy(Request &, Args &argv, std::FILE *out)
{
    const std::string source = argv.size() < 2 ? "" : known_profile(argv[1]);
    if (!is_profile_name(source))
        return refuse(out, error_invalid_arguments);
    const std::optional<std::string> target = argument_or_current(argv, 2);
    if (!target)
        return 1;
    if (const char *error = name_error(*target))
        return refuse(out, error);
    Tree document;
    std::optional<ProfileText> file = profile_read_text(source);
    if (!file || profile_exists(source) != 0 || profile_read_hdf(source, document) != 0)
        return refuse(out, error_copying_profile);
    if (is_full(profile_group(document), *target))
        return refuse(out, error_maxed_profiles);
    file->group = profile_group(document);
    if (const FileResult written = profile_write_text(*target, *file); written.error)
        return refuse(out, written.changed ? kNotFlushed : error_copying_profile);
    reply_name(out, source, *target);
    return 0;
}

int select_default(Request &request, std::FILE *out)
{
    Args selection = {std::string(kCurrentProfileApi) + "=" + kDefaultProfile};
    return command_update(request, selection, out);
}

// The selection goes first: none shall be left that names no profile.
int profile_remove(Request &request, Args &argv, std::FILE *out)
{
    const std::optional<std::string> name = known_or_current(argv);
    if (name == kDefaultProfile)
        return refuse(out, error_can_not_use_default);
    if (!name || !is_profile_name(*name))
        return refuse(out, error_invalid_arguments);
    if (profile_exists(*name) != 0)
        return refuse(out, error_profile_not_found);
    const bool was_current = profile_current() == *name;
    if (was_current && select_default(request, out) != 0)
        return refuse(out, error_removing_profile);
    if (const FileResult removed = profile_remove_file(*name); removed.error)
        return refuse(out, removed.changed ? kNotFlushed : error_removing_profile);
    const std::string now = was_current ? kDefaultProfile : *name;
    reply_name(out, now, now);
    return 0;
}

int profile_reset(Request &, Args &, std::FILE *out)
{
    const FileResult removed = profile_remove_files();
    if (!removed.error)
        return 0;
    return refuse(out, removed.changed ? kNotFlushed : error_removing_profile);
}

} // namespace

int command_profile(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(profileRecord, request, argv, out, SubResult::hand_on);
}

std::string known_profile(std::string word)
{
    const std::optional<std::string> decoded = url_unescape(word);
    const bool is_escaped = decoded && profile_exists(word) == 1 && profile_exists(*decoded) == 0;
    return is_escaped ? *decoded : std::move(word);
}

int store_profile(const std::string &name, const Settings &settings, const std::string &again, std::FILE *out)
{
    if (settings.empty())
        return refuse(out, error_nothing_to_save);
    const Tree document = document_of(settings);
    if (is_full(profile_group(document), again))
        return refuse(out, error_maxed_profiles);
    const FileKind kind = hold_password(settings) ? FileKind::secret : FileKind::open;
    const FileResult written = profile_write_hdf(name, document, kind);
    if (!written.error)
        return 0;
    return refuse(out, written.changed ? kNotFlushed : "##can not write " + profile_file(name) + "#");
}

int load_profile(Request &request)
{
    return load_selected_profile(request, kCurrentProfileApi);
}

} // namespace qvcd

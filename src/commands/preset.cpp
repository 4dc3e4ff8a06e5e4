#include "commands/preset.h"

#include "base/document.h"
#include "base/limits.h"
#include "base/notify.h"
#include "base/reply.h"
#include "base/text.h"
#include "commands/apply.h"
#include "commands/document.h"
#include "commands/preset_store.h"
#include "commands/save.h"
#include "commands/snapshot.h"
#include "platform/api_errors.h"
#include "platform/log.h"
#include "store/database.h"
#include "store/former.h"
#include "store/hdf_file.h"

#include <algorithm>

namespace qvcd {

namespace {

int preset_show_current(Request &request, Args &argv, std::FILE *out);
int preset_check(Request &request, Args &argv, std::FILE *out);
int preset_load(Request &request, Args &argv, std::FILE *out);
int preset_load_name(Request &request, Args &argv, std::FILE *out);
int preset_load_apply(Request &request, Args &argv, std::FILE *out);
int preset_load_apply_name(Request &request, Args &argv, std::FILE *out);
int preset_store(Request &request, Args &argv, std::FILE *out);
int preset_info(Request &request, Args &argv, std::FILE *out);
int preset_get(Request &request, Args &argv, std::FILE *out);
int preset_set(Request &request, Args &argv, std::FILE *out);
int preset_to_file(Request &request, Args &argv, std::FILE *out);
int preset_read(Request &request, Args &argv, std::FILE *out);
int preset_from_export(Request &request, Args &argv, std::FILE *out);
int preset_to_export(Request &request, Args &argv, std::FILE *out);

constexpr SubCommand kSubCommands[] = {
    {"current", preset_show_current, "Get the current configuration"},
    {"check", preset_check, "Check if the current configuration matches the preset"},
    {"load", preset_load, "Load a preset into the current configuration"},
    {"load_name", preset_load_name, "Load a preset into the current configuration"},
    {"load_apply", preset_load_apply, "Load a preset into the current configuration"},
    {"load_apply_name", preset_load_apply_name, "Load a preset into the current configuration"},
    {"store", preset_store, "Store the current settings into a preset"},
    {"info", preset_info, "Get information about a preset"},
    {"get", preset_get, "Display the settings in the preset"},
    {"set", preset_set, "Read user settings and set the preset"},
    {"save", preset_to_file, "Save the preset to persistent memory"},
    {"read", preset_read, "Read the preset file into preset database"},
    {"import", preset_from_export, "Import a preset file"},
    {"export", preset_to_export, "Export a preset file"},
};

} // namespace

const CommandRecord presetRecord = {
    .name = "preset",
    .init = cmd_preset_init,
    .exit = cmd_preset_exit,
    .handler = command_preset,
    .summary = "Get a parameter or group",
    .synopsis = "Usage 'qvc preset' for more help",
    .description = "More to come",
    .sub_commands = kSubCommands,
    .recorded = ChangeNotes::Level::all,
};

namespace {

constexpr char kCanNotRead[] = "##Can not read value#";
constexpr char kCanNotGetPreset[] = "##Can not get preset#";
constexpr char kCanNotSavePreset[] = "##Can not save preset#";
constexpr char kInvalidNumber[] = "##Invalid preset number#";

constexpr char kDefaultName[] = "custom";
constexpr char kDefaultDescription[] = "Custom Preset";
constexpr char kDefaultMatchName[] = "template"; // of a preset without a name, for who asks by name

void publish(const std::string &name, std::string_view what)
{
    notify_publish({"preset", name, what, Secret::no, std::nullopt, {kLevel1Bits}});
}

void publish_current(int before)
{
    const std::string now = std::to_string(preset_current());
    if (now != std::to_string(before))
        notify_publish({"preset", "Preset.current", now, Secret::no, std::to_string(before), {kLevel1Bits}});
}

int refuse(std::FILE *out, std::string_view error)
{
    reply_line(out, error);
    return 1;
}

const char *not_saved(const FileResult &result)
{
    return result.changed ? kNotFlushed : kCanNotSavePreset;
}

int number_argument(const Args &argv, int fallback)
{
    return argv.size() > 1 ? c_int(argv[1]) : fallback;
}

bool can_have_file(int number)
{
    return number >= 1 && number <= kMaxPresets;
}

void print_report(int number, std::string_view name, std::string_view description, std::FILE *out)
{
    reply_value(out, "Preset.Current.number", std::to_string(number));
    reply_value(out, "Preset.Current.name", name);
    reply_value(out, "Preset.Current.desc", description);
}

void print_current_preset(std::FILE *out)
{
    const int number = preset_current();
    const std::string config = preset_name(number) + ".Config";
    print_report(number, presetDB.get_or(config + ".name", kDefaultName),
                 presetDB.get_or(config + ".desc", kDefaultDescription), out);
}

std::string shown_setting(const std::string &api)
{
    const auto value = hdfDB.get(api);
    return value ? shown_value(api, *value) : kCanNotRead;
}

int preset_show_current(Request &, Args &, std::FILE *out)
{
    for (const std::string &api : preset_settings)
        reply_value(out, api, shown_setting(api));
    return 0;
}

int preset_check(Request &, Args &, std::FILE *out)
{
    const Node preset = preset_node(preset_current());
    if (!preset)
        return refuse(out, kCanNotGetPreset);
    const bool matches = std::ranges::all_of(preset_settings, [&](const std::string &api) {
        const auto current = hdfDB.get(api);
        return current && current == get_by_any_name(preset, api);
    });
    if (!matches) {
        print_report(0, kDefaultName, kDefaultDescription, out);
        return 1;
    }
    print_current_preset(out);
    return 0;
}

Settings settings_of(Node preset)
{
    Settings settings;
    for (const std::string &api : preset_settings) {
        if (const auto value = get_by_any_name(preset, api))
            settings.push_back({api, std::string(*value)});
    }
    return settings;
}

int load_number(Request &request, int number, std::FILE *out)
{
    if (number > preset_max_num)
        return refuse(out, kInvalidNumber);
    const Node preset = preset_node(number);
    if (!preset)
        return refuse(out, kCanNotGetPreset);
    const Settings settings = settings_of(preset); // copies: a set may let go of the command lock
    const int before = preset_current();
    const FileResult saved = save_current_preset(number);
    publish_current(before);
    if (saved.error)
        return refuse(out, not_saved(saved));
    publish(preset_name(number), "load");
    note_event(request);
    Request internal = request.as(kInternalMask);
    for (const Setting &setting : settings)
        set_stored(internal, setting, out, SetMode::set);
    return 0;
}

int preset_load(Request &request, Args &argv, std::FILE *out)
{
    return load_number(request, number_argument(argv, preset_current()), out);
}

int preset_load_name(Request &request, Args &argv, std::FILE *out)
{
    if (argv.size() < 2)
        return refuse(out, "##Need to specify a preset name#");
    const std::string decoded = url_unescape(argv[1]).value_or(argv[1]); // how a name with blanks arrives
    for (int number = 1; number <= preset_max_num; ++number) {
        const Node config = presetDB.find(preset_name(number) + ".Config");
        if (!config)
            return refuse(out, kCanNotGetPreset);
        const std::string name = config.get_or("name", kDefaultMatchName);
        if (name == argv[1] || name == decoded)
            return load_number(request, number, out);
    }
    return 1;
}

// Only the template's APIs, so none when there is no template; without names the commands would take all.
int save_and_apply(Request &request, std::FILE *out)
{
    if (preset_settings.empty())
        return 0;
    Args names = preset_settings;
    Request internal = request.as(kInternalMask);
    qv_log_print(kLogDebug, "Saving presets\n");
    if (const int result = command_save(internal, names, out))
        return result;
    qv_log_print(kLogDebug, "Applying presets\n");
    return command_apply(internal, names, out);
}

int preset_load_apply(Request &request, Args &argv, std::FILE *out)
{
    const int result = preset_load(request, argv, out);
    return result ? result : save_and_apply(request, out);
}

int preset_load_apply_name(Request &request, Args &argv, std::FILE *out)
{
    preset_load_name(request, argv, out);
    return save_and_apply(request, out);
}

Walk has_value(Node node)
{
    return node.value() ? Walk::visit : Walk::descend;
}

// Values below the part of the presets that has this name.
void print_values(Node node, const std::string &part, std::FILE *out)
{
    hdfutils_traverse_tree(node, part, has_value, [&](Node value, const std::string &parent) {
        const std::string name = join_name(parent, value.name());
        reply_value(out, name, shown_value(preset_api(name), value.text()));
    });
}

// A preset with the settings as they are.
Tree preset_of_settings(int number)
{
    Tree preset = preset_copy(number);
    for (const std::string &api : preset_settings) {
        if (const auto value = hdfDB.get(api))
            preset.set(api, *value);
    }
    return preset;
}

int print_settings(int number, std::FILE *out)
{
    int result = 0;
    for (const std::string &api : preset_settings) {
        const std::string value = shown_setting(api);
        reply_value(out, preset_name(number) + "." + api, value);
        result |= value == kCanNotRead ? 1 : 0;
    }
    return result;
}

int preset_set(Request &, Args &argv, std::FILE *out)
{
    const int number = number_argument(argv, preset_current());
    if (!can_have_file(number))
        return refuse(out, kInvalidNumber);
    preset_enter(number, preset_of_settings(number));
    publish(preset_name(number), "set");
    return print_settings(number, out);
}

int save_number(int number, const Tree &preset, std::FILE *out)
{
    if (!preset.root().first_child())
        return refuse(out, kCanNotGetPreset);
    if (!can_have_file(number))
        return refuse(out, kInvalidNumber);
    const FileResult saved = preset_save(number, preset);
    if (saved.changed)
        publish(preset_name(number), "save");
    return saved.error ? refuse(out, not_saved(saved)) : 0;
}

int preset_to_file(Request &, Args &argv, std::FILE *out)
{
    const int number = number_argument(argv, preset_current());
    const Tree preset = preset_copy(number);
    const int result = save_number(number, preset, out);
    if (result == 0)
        print_values(preset.root(), preset_name(number), out);
    return result;
}

int preset_store(Request &, Args &argv, std::FILE *out)
{
    const int number = number_argument(argv, preset_current());
    if (!can_have_file(number))
        return refuse(out, kInvalidNumber);
    const Tree preset = preset_of_settings(number);
    if (const int result = save_number(number, preset, out))
        return result;
    print_settings(number, out);
    print_values(preset.root(), preset_name(number), out);
    return 0;
}

// What info and get print of a preset: the part of it below "Preset.<number>".
int dump_preset(int number, std::string_view part, std::FILE *out)
{
    const std::string name = join_name(preset_name(number), part);
    const Node node = presetDB.find(name);
    if (!node)
        return refuse(out, kCanNotGetPreset);
    print_values(node, name, out);
    return 0;
}

int dump_presets(int number, std::string_view part, std::FILE *out)
{
    if (number > preset_max_num)
        return refuse(out, kInvalidNumber);
    if (number != 0)
        return dump_preset(number, part, out);
    print_current_preset(out);
    for (int each = 1; each <= preset_max_num; ++each) {
        if (dump_preset(each, part, out) != 0)
            return 1;
    }
    return 0;
}

int preset_info(Request &, Args &argv, std::FILE *out)
{
    return dump_presets(number_argument(argv, 0), "Config", out);
}

int preset_get(Request &request, Args &argv, std::FILE *out)
{
    if (argv.size() > 1 && argv[1] == "current")
        return preset_check(request, argv, out);
    return dump_presets(number_argument(argv, 0), "", out);
}

int preset_read(Request &, Args &argv, std::FILE *out)
{
    const int number = number_argument(argv, preset_current());
    Tree preset = Tree::make();
    if (!can_have_file(number) || !preset_read_file(number, preset))
        return 1;
    preset_enter(number, preset);
    publish(preset_name(number), "read");
    print_values(preset.root(), preset_name(number), out);
    return 0;
}

constexpr std::size_t kMaxUnknownTold = 10; // names of one import

int preset_from_export(Request &request, Args &argv, std::FILE *out)
{
    if (argv.size() < 2)
        return refuse(out, "##Need to specify an import file#");
    const std::string &file = argv[1];
    Tree imported = Tree::make();
    const HdfRead read = read_import(request, file, imported);
    if (read.result == HdfResult::missing)
        return refuse(out, missing_import(file, ("##Can not find import file " + file + "#").c_str()));
    const std::string wrong = read.result == HdfResult::ok ? preset_document_error(imported) : read.detail;
    if (read.result == HdfResult::error || !wrong.empty()) {
        qv_log_print(kLogDebug, "Error loading preset file %s\n", file.c_str());
        qv_log_print(kLogError, "Can not import presets from %s: %s\n", file.c_str(), wrong.c_str());
        return refuse(out, import_error(file, API_E_IMPORT_FAILED, wrong));
    }
    for (const std::string &name : preset_drop_unknown(imported, kMaxUnknownTold)) {
        qv_log_print(kLogWarning, "No preset has %s\n", one_line(cut(name, kMaxLoggedWordBytes)).c_str());
        reply_value(out, name, API_E_PARAM_NOT_FOUND);
    }
    const int before = preset_current();
    const PresetImport result = preset_import(imported);
    publish_current(before);
    note_event(request);
    publish("Preset", "import");
    if (result == PresetImport::done)
        return 0;
    return refuse(out, result == PresetImport::not_flushed ? kNotFlushed : kCanNotSavePreset);
}

int preset_to_export(Request &, Args &argv, std::FILE *out)
{
    if (argv.size() < 2) {
        hdfutils_dump(presetDB.root(), "", out);
        return 0;
    }
    if (Document::is_meant_by(argv[1])) {
        const std::optional<std::string> text = preset_document();
        if (text)
            reply_text(out, *text);
        return text ? 0 : refuse(out, "##can not write -#");
    }
    return preset_export(argv[1]) ? 0 : refuse(out, "##can not write " + argv[1] + "#");
}

} // namespace

int command_preset(Request &request, Args &argv, std::FILE *out)
{
    return run_subcommand(presetRecord, request, argv, out, SubResult::zero);
}

} // namespace qvcd

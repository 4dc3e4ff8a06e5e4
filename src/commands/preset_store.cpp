#include "commands/preset_store.h"

#include "base/file_text.h"
#include "base/limits.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/hdf_file.h"

#include <algorithm>
#include <cstring>

namespace qvcd {

Tree presetDB;
std::vector<std::string> preset_settings;
int preset_max_num = 0;

namespace {

constexpr char kFolder[] = "/etc/presets";
constexpr char kConfFile[] = "/etc/presets/preset.conf";
constexpr char kTemplateFile[] = "/etc/presets/template";
constexpr char kCurrent[] = "Preset.current";
constexpr std::string_view kTemplateComment = "Config"; // the presets' own description, no API

std::string preset_file(int number)
{
    return std::string(kFolder) + "/preset" + std::to_string(number);
}

bool write_conf(const std::string &text)
{
    const int error = replace_file(qv_sysroot_path(kConfFile), text);
    if (error)
        qv_log_print(kLogError, "Can not write %s: %s\n", kConfFile, std::strerror(error));
    return error == 0;
}

// The file of a folder without a current preset names the first one, which counts from the next start on.
void load_conf()
{
    const HdfRead read = hdf_read_own_file_whole(qv_sysroot_path(kConfFile), presetDB);
    if (read.result == HdfResult::error)
        qv_log_print(kLogError, "Error reading %s: %s\n", kConfFile, read.detail.c_str());
    if (!presetDB.get(kCurrent))
        write_conf("Preset.current=1\n");
}

void load_presets()
{
    Tree scratch = Tree::make(); // one for all: what a preset lacks it takes over from the one before
    for (int number = 1; number <= kMaxPresets; ++number) {
        if (!preset_file_exists(number) || !preset_read_file(number, scratch))
            return;
        presetDB.root().merge(preset_name(number), scratch.root());
        preset_max_num = number;
    }
}

// The last byte of a line is its newline and is cut, so the last line needs one, too.
void add_template_line(std::string_view line)
{
    if (line.size() > 1 && !line.starts_with(kTemplateComment))
        preset_settings.push_back(cut(line.substr(0, line.size() - 1), kMaxNameBytes));
}

void load_template()
{
    const auto text = read_file(qv_sysroot_path(kTemplateFile));
    if (!text) {
        qv_log_print(kLogDebug, "Can't read preset template file\n");
        return;
    }
    for (std::size_t at = 0; at < text->size();) {
        const std::size_t newline = std::min(text->find('\n', at), text->size() - 1);
        add_template_line(std::string_view(*text).substr(at, newline + 1 - at));
        at = newline + 1;
    }
    if (preset_settings.size() <= kMaxPresetSettings)
        return;
    qv_log_print(kLogWarning, "%s: only the first %zu names are used\n", kTemplateFile, kMaxPresetSettings);
    preset_settings.resize(kMaxPresetSettings);
}

} // namespace

int cmd_preset_init()
{
    presetDB = Tree::make();
    preset_settings.clear();
    preset_max_num = 0;
    if (!file_exists(qv_sysroot_path(kFolder)))
        return 0;
    load_conf();
    load_presets();
    load_template();
    return 0;
}

int cmd_preset_exit()
{
    presetDB.destroy();
    preset_settings.clear();
    preset_max_num = 0;
    return 0;
}

int preset_current()
{
    return static_cast<int>(std::clamp(presetDB.get_int(kCurrent, 0), 0LL, 1000000LL));
}

bool save_current_preset(int number)
{
    const std::string text = std::to_string(number);
    presetDB.set(kCurrent, text);
    return write_conf("Preset.current=" +
                      text); // no newline: readers in the field take the rest as it stands
}

std::string preset_name(int number)
{
    return "Preset." + std::to_string(number);
}

Node preset_node(int number)
{
    return presetDB.find(preset_name(number));
}

bool preset_file_exists(int number)
{
    return file_exists(qv_sysroot_path(preset_file(number)));
}

bool preset_read_file(int number, Tree &into)
{
    const std::string file = preset_file(number);
    const HdfRead read = hdf_read_own_file_whole(qv_sysroot_path(file), into);
    if (read.result == HdfResult::ok)
        return true;
    qv_log_print(kLogDebug, "Error loading preset file %s\n", file.c_str());
    qv_log_print(kLogDebug, "%s: %s\n", file.c_str(), read.detail.c_str());
    return false;
}

bool preset_write_file(int number)
{
    return hdf_write_flat_file(qv_sysroot_path(preset_file(number)), preset_node(number));
}

} // namespace qvcd

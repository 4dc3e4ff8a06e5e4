#include "commands/preset_store.h"

#include "base/limits.h"
#include "base/replace_files.h"
#include "base/text.h"
#include "base/value.h"
#include "platform/log.h"
#include "platform/sysroot.h"
#include "store/former.h"
#include "store/hdf_file.h"
#include "store/hdfutils.h"
#include "store/meta.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

namespace qvcd {

Tree presetDB;
std::vector<std::string> preset_settings;
int preset_max_num = 0;

namespace {

constexpr char kFolder[] = "/etc/presets";
constexpr char kConfFile[] = "/etc/presets/preset.conf";
constexpr char kTemplateFile[] = "/etc/presets/template";
constexpr char kRoot[] = "Preset.";
constexpr char kCurrent[] = "Preset.current";
std::map<int, Tree> in_file; // the presets that have a file, and what it holds

constexpr std::string_view kTemplateComment = "Config"; // the presets' own description, no API

std::string preset_file(int number)
{
    return std::string(kFolder) + "/preset" + std::to_string(number);
}

bool log_failure(const char *what, const std::string &path, int error)
{
    if (error)
        qv_log_print(kLogError, "Can not %s %s: %s\n", what, qv_device_path(path).c_str(),
                     std::strerror(error));
    return error == 0;
}

// None when one of them cannot be written; what fails after that leaves a part. Keeps the command lock:
// memory changes with them.
std::vector<FileResult> store_files(const std::vector<FileChange> &files)
{
    FileSet set;
    for (FileChange file : files) {
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (files[i].path != file.path)
                file.after.push_back(i);
        }
        set.add(std::move(file));
    }
    std::vector<FileResult> results = set.commit_here();
    for (std::size_t i = 0; i < files.size(); ++i)
        log_failure("write", files[i].path, results[i].error);
    return results;
}

// No newline: readers in the field take the rest of the line as it stands.
FileChange conf_file(int current)
{
    return {qv_sysroot_path(kConfFile), std::string(kCurrent) + "=" + std::to_string(current)};
}

// The ends of a line are trimmed when it is read; a block keeps them.
std::string line(const std::string &name, std::string_view value)
{
    if (!value.starts_with(' ') && !value.ends_with(' '))
        return std::string(name).append("=").append(value).append("\n");
    const std::string end = hdf_block_mark(value) + "\n";
    return std::string(name).append(" << ").append(end).append(value).append("\n").append(end);
}

Walk has_value(Node node)
{
    return node.value() ? Walk::visit : Walk::descend;
}

// A block's last line end is none of its value's.
void strip_line_ends(Tree &presets)
{
    for (const std::string &name : hdfutils_names(presets.root(), {}, has_value)) {
        const std::string value = presets.get_or(name, "");
        if (value.ends_with('\n'))
            presets.set(name, value.substr(0, value.size() - 1));
    }
}

int current_in(const Tree &tree)
{
    return static_cast<int>(std::clamp(tree.get_int(kCurrent, 0), 0LL, 1000000LL));
}

bool has_only_lines(Node presets)
{
    bool good = true;
    hdfutils_traverse_tree(presets, {}, has_value,
                           [&](Node node, const std::string &) { good &= is_one_line(node.text()); });
    return good;
}

bool has_only_values(Node presets)
{
    bool good = true;
    hdfutils_traverse_tree(presets, {}, has_value,
                           [&](Node node, const std::string &) { good &= !value_error(node.text()); });
    return good;
}

// What somebody wrote into a file by hand.
void replace_controls(Tree &preset)
{
    for (const std::string &name : hdfutils_names(preset.root(), {}, has_value))
        preset.set(name, one_line(preset.get_or(name, "")));
}

// The values below a node: of one preset, or of all. Nothing when a file cannot hold one of them.
std::optional<FileChange> new_file(const std::string &path, Node node)
{
    FileChange file{qv_sysroot_path(path), {}};
    hdfutils_traverse_tree(node, {}, has_value, [&](Node value, const std::string &parent) {
        const std::string name = join_name(parent, value.name());
        file.text += line(name, value.text());
        if (meta_is_password(name.starts_with(kRoot) ? preset_api(name) : name)) {
            file.kind = FileChange::Kind::secret;
            file.mode = 0600;
        }
    });
    if (has_only_lines(node))
        return file;
    qv_log_print(kLogError, "Can not write %s: a value has a control character\n", path.c_str());
    return std::nullopt;
}

bool has_file(std::string_view number)
{
    for (int each = 1; each <= preset_max_num; ++each) {
        if (number == std::to_string(each))
            return true;
    }
    return false;
}

// Presets 1 up to the first that is not in memory or has no file.
void count_presets()
{
    preset_max_num = 0;
    while (preset_max_num < kMaxPresets && preset_node(preset_max_num + 1) &&
           in_file.contains(preset_max_num + 1))
        ++preset_max_num;
}

// A start gives a preset what it lacks from the one before. That goes into its file only where it came from
// there.
void drop_taken_over(int number, Tree &preset)
{
    const auto own = in_file.find(number);
    for (const std::string &name : hdfutils_names(preset.root(), {}, has_value)) {
        const bool is_own = own != in_file.end() && own->second.get(name);
        if (name.starts_with(kTemplateComment) && !is_own &&
            preset.get(name) == preset_node(number - 1).get(name))
            preset.remove(name);
    }
}

// The file of a folder without a current preset names the first one, which counts from the next start on. A
// file that cannot be read may be a good one.
void load_conf()
{
    const HdfRead read = hdf_read_own_file_whole(qv_sysroot_path(kConfFile), presetDB);
    if (read.result == HdfResult::error)
        qv_log_print(kLogError, "Error reading %s: %s\n", kConfFile, read.detail.c_str());
    else if (!presetDB.get(kCurrent))
        store_files({{qv_sysroot_path(kConfFile), "Preset.current=1\n"}});
}

void load_presets()
{
    Tree scratch = Tree::make(); // one for all: what a preset lacks it takes over from the one before
    for (int number = 1; number <= kMaxPresets; ++number) {
        if (!preset_read_file(number, scratch))
            break;
        presetDB.root().merge(preset_name(number), scratch.root());
    }
    count_presets();
}

void add_template_line(std::string_view line)
{
    line = line.substr(0, line.find_last_not_of(" \t\r") + 1); // npos + 1 is 0
    if (!line.empty() && !line.starts_with(kTemplateComment))
        preset_settings.push_back(cut(line, kMaxNameBytes));
}

void load_template()
{
    const FileText file = read_whole_file(qv_sysroot_path(kTemplateFile));
    if (file.error)
        qv_log_print(kLogDebug, "Can't read preset template file\n");
    if (!file.missing())
        log_failure("read", kTemplateFile, file.error);
    for (const std::string &line : split_words(file.text, "\n"))
        add_template_line(line);
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
    in_file.clear();
    preset_max_num = 0;
    if (const int error = look_for_file(qv_sysroot_path(kFolder))) {
        if (error != ENOENT)
            log_failure("look for", kFolder, error);
        return 0;
    }
    load_conf();
    load_presets();
    load_template();
    return 0;
}

int cmd_preset_exit()
{
    presetDB.destroy();
    preset_settings.clear();
    in_file.clear();
    preset_max_num = 0;
    return 0;
}

int preset_current()
{
    return current_in(presetDB);
}

FileResult save_current_preset(int number)
{
    const FileChange file = conf_file(number);
    if (number == preset_current() && is_flushed(file.path))
        return {0, true};
    const FileResult result = store_files({file}).front();
    if (result.changed)
        presetDB.set(kCurrent, std::to_string(number));
    return result;
}

std::string preset_name(int number)
{
    return kRoot + std::to_string(number);
}

std::string preset_api(std::string_view name)
{
    const std::size_t number = name.find('.');
    const std::size_t end = number == std::string_view::npos ? number : name.find('.', number + 1);
    return std::string(end == std::string_view::npos ? std::string_view() : name.substr(end + 1));
}

Node preset_node(int number)
{
    return presetDB.find(preset_name(number));
}

Tree preset_copy(int number)
{
    Tree copy = Tree::make();
    copy.root().merge("", preset_node(number));
    return copy;
}

bool preset_read_file(int number, Tree &into)
{
    const std::string file = preset_file(number);
    Tree own = Tree::make();
    const HdfRead read = hdf_read_own_file_whole(qv_sysroot_path(file), own);
    if (read.result == HdfResult::ok) {
        strip_line_ends(own);
        replace_controls(own);
        into.root().merge("", own.root());
        in_file[number] = std::move(own);
        return true;
    }
    if (read.result == HdfResult::error) {
        qv_log_print(kLogDebug, "Error loading preset file %s\n", file.c_str());
        qv_log_print(kLogError, "Can not read %s: %s\n", file.c_str(), read.detail.c_str());
    }
    return false;
}

void preset_enter(int number, const Tree &preset)
{
    if (preset.root().first_child())
        presetDB.root().merge(preset_name(number), preset.root());
    count_presets();
}

FileResult preset_save(int number, const Tree &preset)
{
    const std::string name = preset_file(number);
    Tree whole = Tree::make();
    if (!in_file.contains(number)) { // what could not be read at the start is not lost now
        const FileText old = read_whole_file(qv_sysroot_path(name));
        if (!old.missing() && !log_failure("read", name, old.error))
            return {old.error, false};
        preset_read_file(number, whole);
    }
    whole.root().merge("", preset.root());
    drop_taken_over(number, whole);
    const std::optional<FileChange> file = new_file(name, whole.root());
    if (!file)
        return {EINVAL, false};
    const FileResult result = store_files({*file}).front();
    if (result.changed) {
        if (in_file.contains(number - 1))
            presetDB.root().merge(preset_name(number), preset_node(number - 1));
        preset_enter(number, whole);
        in_file[number] = std::move(whole);
        count_presets();
    }
    return result;
}

std::optional<std::string> preset_document()
{
    std::optional<FileChange> file = new_file("the export", presetDB.root());
    return file ? std::optional(std::move(file->text)) : std::nullopt;
}

bool preset_export(const std::string &path)
{
    const std::optional<FileChange> file = new_file(path, presetDB.root());
    return file && log_failure("write", file->path, replace_named_file(file->path, file->text, file->mode));
}

std::string preset_document_error(Tree &imported)
{
    strip_line_ends(imported);
    const Node presets = imported.find("Preset");
    if (!presets.first_child())
        return "there are no presets in it";
    for (const Node node : imported.root()) {
        if (!(node == presets) || node.value())
            return std::string(node.name()) + " belongs to no preset";
    }
    for (const Node node : presets) {
        const std::string name = join_name("Preset", node.name());
        if (name == kCurrent ? !node.is_leaf() : node.value().has_value())
            return name + " belongs to no preset";
        if (name != kCurrent && !has_file(node.name()))
            return "there is no preset " + std::string(node.name()) + " here (preset.store makes one)";
    }
    return has_only_values(imported.root()) ? "" : "a value has a control character, or is too long";
}

std::vector<std::string> preset_drop_unknown(Tree &imported, std::size_t most)
{
    const std::set<std::string, std::less<>> known(preset_settings.begin(), preset_settings.end());
    std::set<std::string> unknown;
    Tree kept = Tree::make();
    if (const auto current = imported.get(kCurrent))
        kept.set(kCurrent, *current);
    for (const Node node : imported.find("Preset")) {
        Tree preset = Tree::make();
        preset.root().merge("", node);
        rename_former(preset);
        hdfutils_traverse_tree(
            preset.root(), "", hdfutils_check_endnode, [&](Node value, const std::string &parent) {
                const std::string name = join_name(parent, value.name());
                if (known.contains(name) || name.starts_with("Config."))
                    kept.set(join_name(join_name("Preset", node.name()), name), value.text());
                else if (unknown.size() < most)
                    unknown.insert(name);
            });
    }
    imported = std::move(kept);
    return {unknown.begin(), unknown.end()};
}

PresetImport preset_import(const Tree &imported)
{
    std::vector<FileChange> files;
    for (int number = 1; number <= preset_max_num; ++number) {
        Tree merged = preset_copy(number);
        merged.root().merge("", imported.find(preset_name(number)));
        std::optional<FileChange> file = new_file(preset_file(number), merged.root());
        if (!file)
            return PresetImport::not_saved;
        files.push_back(std::move(*file));
    }
    if (imported.get(kCurrent))
        files.push_back(conf_file(current_in(imported)));
    const std::vector<FileResult> results = store_files(files);
    if (imported.get(kCurrent) && results.back().changed)
        presetDB.set(kCurrent, std::to_string(current_in(imported)));
    for (int number = 1; number <= preset_max_num; ++number) {
        if (!results[static_cast<std::size_t>(number) - 1].changed)
            continue;
        presetDB.root().merge(preset_name(number), imported.find(preset_name(number)));
        in_file[number] = preset_copy(number);
    }
    if (!std::ranges::all_of(results, &FileResult::changed))
        return PresetImport::not_saved;
    const auto flushed = [](const FileResult &result) { return result.error == 0; };
    return std::ranges::all_of(results, flushed) ? PresetImport::done : PresetImport::not_flushed;
}

} // namespace qvcd

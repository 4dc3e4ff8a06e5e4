#pragma once

#include "base/file_text.h"
#include "store/tree.h"

#include <optional>
#include <string>
#include <vector>

namespace qvcd {

// Presets: numbered sets of values for one list of APIs, the template. They live in "/etc/presets":
// "template" has one API name a line, "preset1" to "preset20" hold "name=value" lines (a value with a blank
// at an end is a block, "name << EOM") and "Config.name", "Config.desc", "preset.conf" holds
// "Preset.current=<number>". Memory goes by what the files hold (FileResult, base/file_text.h).

inline constexpr int kMaxPresets = 20;
inline constexpr std::size_t kMaxPresetSettings = 99;

/// "Preset.current" and one subtree "Preset.<number>" a preset. Changed only under the command lock.
extern Tree presetDB;
extern std::vector<std::string> preset_settings; ///< the template's APIs, at most kMaxPresetSettings
extern int preset_max_num; ///< presets 1 to this one are in memory and have files; 0 when there is none

/// Loads the folder: the presets from 1 up to the first gap or unreadable file, the template, the current
/// number. Without a folder there are no presets. Returns 0.
int cmd_preset_init();
int cmd_preset_exit();

/// The number of the current preset; 0 when there is none.
int preset_current();

/// Makes a preset the current one; logs the reason of an error.
FileResult save_current_preset(int number);

std::string preset_name(int number);           ///< "Preset.<number>"
std::string preset_api(std::string_view name); ///< the API in "Preset.<number>.<API>"
Node preset_node(int number);                  ///< none when there is no such preset
Tree preset_copy(int number);                  ///< empty when there is no such preset

/// Reads a preset's file over what `into` holds; false, `into` as it was, when there is none, or it is no
/// good, which is logged.
bool preset_read_file(int number, Tree &into);

/// Puts values over those that a preset has in memory.
void preset_enter(int number, const Tree &preset);

/// The same, after writing `preset` as its file; logs the reason of an error. What a start would give it from
/// the preset before is in memory too; a file that was never read is kept below what is written. One with a
/// password is readable for the owner only.
FileResult preset_save(int number, const Tree &preset);

/// All presets as one document; nothing, after logging why, when none can hold a value.
std::optional<std::string> preset_document();

/// Writes it to a path of the appliance; false, after logging why, when it cannot be
/// written.
bool preset_export(const std::string &path);

/// Why such a document cannot be imported; empty when it can. It holds nothing, something that is no preset's
/// and so in no file, a preset that there is not, or a value with a control character. Line ends of its
/// blocks are taken off.
std::string preset_document_error(Tree &imported);

/// Leaves in a document of presets what a load looks at, under the names that APIs have now. Returns the
/// names that went, each once, and at most `most` of them.
std::vector<std::string> preset_drop_unknown(Tree &imported, std::size_t most);

/// Puts the presets and the current number of such a document over those in memory and in the files that
/// there are. Nothing is changed when a file cannot be written, which is logged (not_saved); a disk that
/// fails in the middle leaves some presets changed, in memory as in their files. not_flushed: all change, but
/// a power failure may undo it.
enum class PresetImport { done, not_saved, not_flushed };
PresetImport preset_import(const Tree &imported);

} // namespace qvcd

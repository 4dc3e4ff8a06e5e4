#pragma once

#include "store/tree.h"

#include <string>
#include <vector>

namespace qvcd {

// Presets: numbered sets of values for one list of APIs, the template. They live in "/etc/presets":
// "template" has one API name a line, "preset1" to "preset20" hold "name=value" lines and "Config.name",
// "Config.desc", "preset.conf" holds "Preset.current=<number>".

inline constexpr int kMaxPresets = 20;
inline constexpr std::size_t kMaxPresetSettings = 99;

/// "Preset.current" and one subtree "Preset.<number>" a preset. Changed only under the command lock.
extern Tree presetDB;
extern std::vector<std::string> preset_settings; ///< the template's APIs, at most kMaxPresetSettings
extern int preset_max_num;                       ///< the highest number loaded at start, 0 when there is none

/// Loads the folder: the presets from 1 up to the first gap or unreadable file, the template, the current
/// number. Without a folder there are no presets. Returns 0.
int cmd_preset_init();
int cmd_preset_exit();

/// The number of the current preset; 0 when there is none.
int preset_current();

/// Makes a preset the current one, in memory and in its file; false (the reason is logged) when the file
/// cannot be written.
bool save_current_preset(int number);

std::string preset_name(int number); ///< "Preset.<number>"
Node preset_node(int number);        ///< none when there is no such preset

bool preset_file_exists(int number);

/// Reads a preset's file over what `into` holds; false, `into` as it was, when the file is no good, which is
/// logged.
bool preset_read_file(int number, Tree &into);

/// Writes a preset to its file in one durable step; false, the file as it was, when it cannot be written.
bool preset_write_file(int number);

} // namespace qvcd

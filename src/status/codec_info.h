#pragma once

#include <string>

namespace qvcd {

// Read functions of what the codec does. `file` is not used.
//
// The settings in force are those that the media process writes to "/tmp/mobisettings.hdf"; the file is read
// anew when `cached` is false, or when none could be read before.

/// `attr` is "mode" ("encoder", "decoder", "unknown"), "format" ("sd", "hd", ...; "auto" gives the format in
/// force), "inputmode" or "inputformat" (of the encoder's input), or a key of the selected encoder or decoder
/// configuration. For an encoder in the format "auto" the input mode in force is copied into the settings
/// tree.
bool codec_video_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// A key of the selected audio configuration.
bool codec_audio_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// A key of the spot output's configuration, "n/a" when absent.
bool codec_spotout_rfunc(const char *file, const char *attr, std::string &out, bool cached);

/// A key of the settings in force.
bool codec_actual_settings_rfunc(const char *file, const char *attr, std::string &out, bool cached);

} // namespace qvcd

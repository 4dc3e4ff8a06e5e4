#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// Read functions of what the codec does. `file` is not used.
//
// The settings in force are those that the media process writes to "/tmp/mobisettings.hdf"; one request reads
// the file once.

/// `attr` is "mode" ("encoder", "decoder", "unknown"), "format" ("sd", "hd", ...; "auto" gives the format in
/// force), "inputmode" or "inputformat" (of the encoder's input), or a key of the selected encoder or decoder
/// configuration. For an encoder in the format "auto" the input mode in force is copied into the settings
/// tree.
std::optional<std::string> codec_video_rfunc(Request &request, const char *file, const char *attr);

/// A key of the selected audio configuration.
std::optional<std::string> codec_audio_rfunc(Request &request, const char *file, const char *attr);

/// A key of the spot output's configuration, "n/a" when absent.
std::optional<std::string> codec_spotout_rfunc(Request &request, const char *file, const char *attr);

/// A key of the settings in force.
std::optional<std::string> codec_actual_settings_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

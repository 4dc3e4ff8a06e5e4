#pragma once

#include "base/request.h"

#include <optional>
#include <string>

namespace qvcd {

// Read functions of what the codec does. `file` is not used.
//
// The settings in force are those that the media process writes to "/tmp/mobisettings.hdf"; one request reads
// the file once. They are shown, and never enter the settings: those hold what the user wants and save
// writes.

/// `attr` is "mode" ("encoder", "decoder", "unknown"), "format" ("sd", "hd", ...; "auto" gives the format in
/// force), "inputmode" (of the encoder's input; in the format "auto" the one in force), "inputformat", or a
/// key of the selected encoder or decoder configuration.
std::optional<std::string> codec_video_rfunc(Request &request, const char *file, const char *attr);

/// A key of the selected audio configuration.
std::optional<std::string> codec_audio_rfunc(Request &request, const char *file, const char *attr);

/// A key of the spot output's configuration, "n/a" when absent.
std::optional<std::string> codec_spotout_rfunc(Request &request, const char *file, const char *attr);

/// A key of the settings in force.
std::optional<std::string> codec_actual_settings_rfunc(Request &request, const char *file, const char *attr);

} // namespace qvcd

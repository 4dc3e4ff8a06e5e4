#pragma once

#include "base/args.h"
#include "commands/set.h"
#include "store/tree.h"

#include <string>
#include <vector>

namespace qvcd {

// What profiles and presets hold: values of settings, decoded.

inline constexpr unsigned kUserWriteBits = 0x222; ///< what the maker alone may write is no user's profile

struct Setting {
    std::string api;
    std::string value;
};
using Settings = std::vector<Setting>;

/// The settings that a profile of these APIs and groups (none: all) holds, as they are at one moment: what
/// the caller may read and a load would set. Not those that say which profile is selected, but for a group
/// that is named itself. 1, after a line for each, when a name is unknown; else 0.
int take_settings(const Request &request, const Args &names, std::FILE *out, Settings &taken);

/// The document of a profile, and back: of a document, whoever wrote it, what a load sets.
Tree document_of(const Settings &settings);
Settings settings_of(const Tree &document);

bool hold_password(const Settings &settings);

/// What the set command does, but that a password is not shown, since it is not the caller who gave it. May
/// let go of the command lock where the API is dynamic.
int set_stored(Request &request, const Setting &setting, std::FILE *out, SetMode mode);

} // namespace qvcd

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/options.h"

namespace qvcd::client {

/// A setting as this session may see it.
struct Setting {
    std::string name;
    std::string value;
    bool is_modified = false;  ///< not saved yet
    bool is_unapplied = false; ///< its action has not run yet
    bool is_changed = false;   ///< from its default
    /// The default that it was changed from; of a password there is none.
    std::optional<std::string> fallback = std::nullopt;
};

struct Settings {
    std::vector<Setting> list;
    std::vector<std::string> refused; ///< reply lines with errors
    int result = 0;                   ///< of `get`
};

/// The settings of these names and below them, or all for no names. Throws WireError, and UsageError for
/// names that cannot be sent.
Settings fetch_settings(const Options &options, const std::vector<std::string> &names);

} // namespace qvcd::client

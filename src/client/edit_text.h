#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "client/settings.h"

namespace qvcd::client {

// The text that `qvc edit` shows: a line NAME=VALUE a setting. Lines that begin with "#" are for the reader.

/// Why a setting does not take what was written: a line below it.
using Refusals = std::map<std::string, std::string>;

/// `now`: what is to stand there in place of the settings' values.
std::string edit_text(const std::vector<Setting> &settings, const std::map<std::string, std::string> &now,
                      const Refusals &refusals);

/// What somebody made of it.
struct Edited {
    std::map<std::string, std::string> values; ///< those that differ from the settings'
    std::vector<std::string> order;            ///< their names as they stand in the text
    Refusals refusals; ///< of lines that name no setting of the text, by the whole line
};
Edited read_edited(std::string_view text, const std::vector<Setting> &settings);

} // namespace qvcd::client

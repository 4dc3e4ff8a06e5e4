#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace qvcd {

/// What a walk over all APIs finds.
struct Survey {
    std::size_t modified = 0;  ///< APIs that are not saved
    std::size_t unapplied = 0; ///< APIs whose action has not run
    std::string revision;      ///< 16 hexadecimal digits, of all saved settings but passwords
};

/// Takes the command lock for a few APIs at a time, so that commands wait for a small part of it only. What
/// changes meanwhile may be in it or not. Nothing when the daemon stops.
std::optional<Survey> survey_settings();

} // namespace qvcd

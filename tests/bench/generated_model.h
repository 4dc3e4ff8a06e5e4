#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qvcd::bench {

/// A model that was written below a root: its metadata file and the configuration files that it names.
struct GeneratedModel {
    std::string metadata;              ///< path of the file
    std::vector<std::string> apis;     ///< the names of all APIs
    std::vector<std::string> settable; ///< those that take any integer from 64 to 60000
};

/// Writes a model of exactly `count` APIs of depth 4 and 5, in groups of 12 below ten areas. Attributes stand
/// where people put them: permissions on the areas, readers and writers on the units, files on the groups,
/// type, default and key on the APIs, actions on some. Half of the groups come from templates.
GeneratedModel write_model(const std::string &root, std::size_t count);

/// Where the APIs of the save model are stored.
inline constexpr std::size_t kSpreadFiles = 30;

/// Writes a model for `save`: `count` APIs "Recorder.Single.Slot<n>.title", all in one file, and as many
/// "Recorder.Spread.Slot<n>.title" in kSpreadFiles files.
GeneratedModel write_save_model(const std::string &root, std::size_t count);

} // namespace qvcd::bench

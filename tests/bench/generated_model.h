#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qvcd::bench {

/// One setting of the generated model. Both values are valid for its type.
struct Api {
    std::string name;
    std::string value; ///< in its configuration file
    std::string other; ///< to set
    std::string file;  ///< below the root's /etc/bench
};

/// A model that was written below a root.
struct Model {
    std::string metadata; ///< path of the file
    std::vector<Api> apis;
};

inline constexpr std::size_t kApisOfOneFile = 100;

/// Writes a model of `count` APIs "Area.Unit.Channel.leaf" below `root`: ten areas of ten units of as many
/// channels as it takes, ten leaves a channel. Each API has eight attributes of its own: type, default, perm,
/// file, attr, read, write and apply. Successive APIs share a configuration file, kApisOfOneFile in each,
/// which holds their values.
Model write_model(const std::string &root, std::size_t count);

} // namespace qvcd::bench

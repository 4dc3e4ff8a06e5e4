#pragma once

#include "check/finding.h"
#include "check/source.h"

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace qvcd {

struct CheckOptions {
    std::optional<std::string> root; ///< a folder that stands for "/" of the appliance: its files count too
    std::stop_token stop{};          ///< when it is asked for, nothing is found
};

/// Everything that is wrong with a model, in the order of its files: what the texts say, and, where every
/// group has its end, what they mean. Reads no file but below `root`; knows the daemon's tables, and nothing
/// of its trees.
std::vector<Finding> check_model(const Source &source, const CheckOptions &options = {});

} // namespace qvcd

#pragma once

#include "qvmeta/describe.h"

#include <string>
#include <vector>

namespace qvcd {

/// The reference as a text. What stands in the model is text in it, whatever it looks like.
std::string markdown(const std::vector<Chapter> &chapters);

/// The same as one page that needs nothing else, with a search, in light and dark.
std::string html(const std::vector<Chapter> &chapters);

} // namespace qvcd

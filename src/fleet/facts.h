#pragma once

#include "base/request.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qvcd {

/// What an appliance tells of itself: the name of a fact, and the API that has it.
using FactNames = std::vector<std::pair<std::string, std::string>>;

/// From "label=System.Label,model=..."; the usual ones for an empty text. What has no "=" is left out.
FactNames fact_names(std::string_view text);

/// "link.<interface>" of every API that the metadata has read by linkstate_rfunc. Under the command lock.
FactNames link_names();

using Facts = std::vector<std::pair<std::string, std::string>>;

/// The values of those that there are and that are no secret. Under the command lock, which it may let go of.
Facts read_facts(Request &request, const FactNames &names);

} // namespace qvcd

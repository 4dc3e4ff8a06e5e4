#pragma once

#include "base/request.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// How a call is written: what is behind `most` arguments is not handed on.
struct ApplySyntax {
    std::string_view name;
    std::size_t least; ///< arguments; with fewer it does nothing
    std::size_t most;
};
std::vector<ApplySyntax> apply_syntax(); ///< of all apply functions

int cmd_create_afuncmap_hdf(); ///< logs the map's size; 0

/// Runs one call, "function argument ...", for an API. Returns 0; `result` gets the function's own result, 0
/// for success. Lets go of the command lock while it waits.
int afuncmap_apply_direct(Request &request, std::string_view action, std::string_view api,
                          std::string_view call, int &result);

/// Whether the call sets, applies or saves other settings: it loads a profile.
bool afuncmap_sets_settings(std::string_view call);
/// What a call that only has something run later runs, as a call for now; nothing for other calls.
std::optional<std::string> afuncmap_without_delay(std::string_view call);

/// Fills the functions that load the profile which an API's value names: the profile commands lie above this
/// map. Returns 0 for success.
void afuncmap_set_profile_loader(int (*loader)(Request &request, const std::string &api));

} // namespace qvcd

#pragma once

#include <string>
#include <string_view>

namespace qvcd {

int cmd_create_afuncmap_hdf();
int cmd_destroy_afuncmap_hdf();

/// Runs one call, "function argument ...", for an API. Returns 0; `result` gets the function's own result, 0
/// for success. Lets go of the command lock while it waits.
int afuncmap_apply_direct(std::string_view action, std::string_view api, std::string_view call, int &result);

/// Runs all calls of the API's "apply" attribute; the last one's result.
int afuncmap_apply(std::string_view action, std::string_view api);

/// Fills the function "profile_apply": the profile commands lie above this map. Returns 0 for success.
void afuncmap_set_profile_loader(int (*loader)());

} // namespace qvcd

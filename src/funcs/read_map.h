#pragma once

#include <string>
#include <string_view>

namespace qvcd {

/// A read function gets the API's "file" and "attr" attributes (null when absent) and whether it was called
/// before since the cache was cleared. True: `out` is the value. False: there is none. `out` comes in with
/// what the caller had; functions that say so leave it alone.
using ReadFunction = bool (*)(const char *file, const char *attr, std::string &out, bool cached);

int cmd_create_rfuncmap_hdf();
int cmd_destroy_rfuncmap_hdf();

/// Reads the live value of an API through the function that its "read" attribute names; at most
/// kMaxValueBytes. May let go of the command lock.
bool rfuncmap_read(std::string_view api, std::string &out);

/// Forgets which functions were called: at the end of every get and of a population.
void rfuncmap_clear_cache();

/// Fills the row "profile_rfunc": the profile commands lie above this map.
void rfuncmap_set_profile_reader(ReadFunction reader);

} // namespace qvcd

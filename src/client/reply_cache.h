#pragma once

#include <optional>
#include <string>

namespace qvcd::client {

// Replies kept for a few seconds between two runs of qvc, for completion: the names of a large appliance are
// not asked for at every key press. They lie in a folder that only the user can look into, "qvc" in
// $XDG_RUNTIME_DIR or "/tmp/qvc-<user id>"; where that folder is not safe, nothing is kept.

/// The text that was kept under `key` within the last seconds.
std::optional<std::string> cached_text(const std::string &key);

/// Keeps a text; does nothing when it cannot.
void cache_text(const std::string &key, const std::string &text);

} // namespace qvcd::client

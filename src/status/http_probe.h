#pragma once

#include <string>

namespace qvcd {

/// True when an HTTP request for `url` gets a whole answer, whatever its status, within 2 s, the look-up of
/// the name included. Redirects are not followed and count as answers; the body is dropped; proxies of the
/// environment are not used; certificates are not checked. Only "http" and "https" URLs are tried, "http"
/// where none is given. Blocks: call without the command lock. Thread-safe.
bool http_reachable(const std::string &url);

} // namespace qvcd

#pragma once

#include <string>

namespace qvcd {

/// Where a connection comes from, and what that alone lets it do.
struct Caller {
    std::string source = "the daemon itself"; ///< "192.0.2.7", "user 1000": for the log, and to tell it again
    bool local = true;                        ///< over the Unix socket
    bool trusted = true;                      ///< session 0 is root there
    bool stranger = false; ///< came with session 0 without being trusted: runs what is open to strangers only
};

/// Of commands that the daemon runs by itself.
inline const Caller kOwnCaller;

} // namespace qvcd

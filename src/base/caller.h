#pragma once

#include <memory>
#include <string>

namespace qvcd {

class Document;
class EventQueue;

/// Whose changes are whose that is not known.
inline constexpr char kNobody[] = "";

/// Where a connection comes from, what that alone lets it do, and who it says to be.
struct Caller {
    std::string source = "the daemon itself"; ///< "192.0.2.7", "user 1000": for the log, and to tell it again
    bool local = true;                        ///< over the Unix socket
    bool trusted = true;                      ///< session 0 is root there
    bool stranger = false; ///< came with session 0 without being trusted: runs what is open to strangers only
    std::string session =
        kNobody; ///< tells apart whose changes are whose; a credential: neither logged nor shown
    std::string user = "qvcd";    ///< who is logged in
    std::string client = "";      ///< the first word of the connection
    Document *document = nullptr; ///< what came over the connection with this command; null: nothing can
    std::shared_ptr<EventQueue> *events =
        nullptr; ///< where the connection's stream of events is put, likewise
};

/// Of commands that the daemon runs by itself.
inline const Caller kOwnCaller;

} // namespace qvcd

#pragma once

#include "base/caller.h"
#include "platform/peer.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

class SessionUse;
class WaitHooks;

/// What the first line of a connection makes of it.
struct Admission {
    unsigned mask = 0;                         ///< the permission mask
    bool stranger = false;                     ///< it may run what is open to strangers (base/caller.h)
    std::string session = kNobody;             ///< for Caller
    std::string user = "";                     ///< for Caller
    std::shared_ptr<SessionUse> use = nullptr; ///< of its session; each command notes it
    unsigned changes = 0;                      ///< of the session's rights, when these were given
    std::string refusal = "";                  ///< what to tell who is not admitted, where it may be told

    bool admitted() const { return mask != 0 || stranger; }
};

/// The client's name of a first line, as the log shows words.
std::string client_of(std::string_view first_line);

/// By the first line, "<client name> <session number> <number>", and where it comes from. When session
/// checking is off, every line of a local or trusted caller gives 0xffff. Takes the command lock: do not hold
/// it.
///
/// Session 0 of a client that showed a certificate stands for the user of this name, who needs no log-in.
Admission server_login(std::string_view first_line, const Caller &caller,
                       const std::optional<std::string> &certificate_user = std::nullopt);

/// The same for a client whose requests another program hands on: by user and password where he has given
/// them, else by a session, which is not 0. `hooks` run around the checking of a password.
Admission relayed_login(std::string_view first_line, const Caller &caller,
                        const std::optional<PeerLogin> &login, WaitHooks *hooks);

} // namespace qvcd

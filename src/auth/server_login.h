#pragma once

#include "base/caller.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

class SessionUse;

/// What the first line of a connection makes of it.
struct Admission {
    unsigned mask = 0;                         ///< the permission mask
    bool stranger = false;                     ///< it may run what is open to strangers (base/caller.h)
    std::string session = kNobody;             ///< for Caller
    std::string user = "";                     ///< for Caller
    std::shared_ptr<SessionUse> use = nullptr; ///< of its session; each command notes it
    unsigned changes = 0;                      ///< of the session's rights, when these were given

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

} // namespace qvcd

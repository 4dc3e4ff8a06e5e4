#pragma once

#include "base/caller.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// True for the local user "qvweb", the gateway of browsers. It has no rights of its own.
bool is_gateway(const Caller &caller);

enum class Verdict {
    right,
    wrong,
    early,    ///< too many wrong ones before: not looked at
    built_in, ///< right, but everybody knows it, and the caller is not trusted
};

struct PasswordCheck {
    Verdict verdict;
    std::string password;         ///< the one that was right
    std::chrono::seconds wait{0}; ///< early: so long from now
};

/// Checks a user's password, which may have been meant in several ways, and holds up who gives wrong ones
/// (auth/login_delays.h), told by where he comes from: the caller's source, and `on_behalf_of` where a
/// trusted caller, or the local user "qvweb", says so. A user without a password has none that is right, and
/// a user who does not exist neither. Lets go of the command lock where hashes are made or compared. A plain
/// password that was right is replaced by its hash when the option asks for that.
PasswordCheck check_password(const std::string &user, const std::vector<std::string> &passwords,
                             const Caller &caller, std::string_view on_behalf_of);

} // namespace qvcd

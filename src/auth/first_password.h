#pragma once

#include <string>

namespace qvcd {

/// Gives a user, who was just found to have the built-in password, another one in its place: null, or the
/// error text for the reply. It has to be one that a user can have, and not a built-in one itself. Of two at
/// once one is told that his password is wrong. May let go of the command lock.
const char *replace_built_in_password(const std::string &user, const std::string &next);

} // namespace qvcd

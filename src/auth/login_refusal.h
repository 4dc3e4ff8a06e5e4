#pragma once

#include "auth/session.h"
#include "base/caller.h"

#include <optional>
#include <string>
#include <string_view>

namespace qvcd {

/// Why this user's login did not work, as the reply says it; counts it, and logs who failed. Nothing: it
/// worked.
std::optional<std::string> login_refusal(const LoginResult &result, std::string_view name,
                                         const Caller &caller);

} // namespace qvcd

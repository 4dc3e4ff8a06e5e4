#include "auth/server_login.h"

#include "auth/session.h"
#include "base/command_lock.h"
#include "base/options.h"
#include "platform/log.h"

#include <cstdio>
#include <optional>
#include <string>
#include <utility>

namespace qvcd {

namespace {

constexpr unsigned kEverything = 0xffff;

std::optional<int> session_number(const std::string &line)
{
    long long n = 0; // a number that does not fit must not become that of a session
    int unused = 0;
    if (std::sscanf(line.c_str(), "%*s %lld %d", &n, &unused) != 2 || !std::in_range<int>(n))
        return std::nullopt;
    return static_cast<int>(n);
}

} // namespace

unsigned server_login(std::string_view first_line)
{
    if (disable_login)
        return kEverything;
    const std::optional<int> n = session_number(std::string(first_line));
    const CommandLock lock;
    if (!n || !lock.held())
        return 0;
    SessionFacts session;
    session_get(*n, session);
    if (*n == 0 || (session.user && session.group))
        return session.perm;
    qv_log_print(kLogDebug, "Access denied for nonsession\n");
    return 0;
}

} // namespace qvcd

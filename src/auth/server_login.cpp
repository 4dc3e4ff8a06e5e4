#include "auth/server_login.h"

#include "auth/session.h"
#include "base/command_lock.h"
#include "base/options.h"
#include "platform/log.h"

#include <cstdio>
#include <optional>
#include <string>

namespace qvcd {

namespace {

constexpr unsigned kEverything = 0xffff;

std::optional<int> session_number(const std::string &line)
{
    int n = 0;
    int unused = 0;
    if (std::sscanf(line.c_str(), "%*s %d %d", &n, &unused) != 2)
        return std::nullopt;
    return n;
}

} // namespace

Admission server_login(std::string_view first_line, const Caller &caller)
{
    if (disable_login && (caller.local || caller.trusted))
        return {kEverything};
    const std::optional<int> n = session_number(std::string(first_line));
    const CommandLock lock;
    if (!n || !lock.held())
        return {};
    if (*n == 0 && !caller.trusted)
        return {0, true};
    SessionFacts session;
    session_get(*n, session);
    if (*n == 0 || (session.user && session.group && session_is_for(*n, caller)))
        return {session.perm};
    qv_log_print(kLogDebug, "Access denied for nonsession\n");
    return {};
}

} // namespace qvcd

#include "auth/server_login.h"

#include "auth/login_refusal.h"
#include "auth/session.h"
#include "auth/user.h"
#include "base/command_lock.h"
#include "base/limits.h"
#include "base/options.h"
#include "base/text.h"
#include "platform/log.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace qvcd {

namespace {

constexpr unsigned kEverything = 0xffff;

constexpr char kBlanks[] = " \t\n\v\f\r";

// A word, the session's number, and another number.
std::optional<int> session_number(const std::string &line)
{
    const std::size_t word_end = line.find_first_of(kBlanks, line.find_first_not_of(kBlanks));
    if (word_end == std::string::npos)
        return std::nullopt;
    const char *number = line.c_str() + word_end;
    char *number_end = nullptr;
    char *end = nullptr;
    const long long n = std::strtoll(number, &number_end, 10); // too large a one is no other session's
    std::strtol(number_end, &end, 10);
    if (number_end == number || end == number_end || !std::in_range<int>(n))
        return std::nullopt;
    return static_cast<int>(n);
}

// The users may have changed since the certificate was made.
Admission admit_by_certificate(const std::string &user)
{
    user_reread_db_file();
    if (is_user_name(user) && user_exists(user))
        return {user_get_perm(user), false, "certificate of " + user, user};
    qv_log_print(kLogInfo, "Access denied: the certificate's name '%s' is no user\n",
                 cut(user, kMaxLoggedWordBytes).c_str());
    return {};
}

} // namespace

std::string client_of(std::string_view first_line)
{
    first_line = first_line.substr(0, first_line.find('\0'));
    first_line.remove_prefix(std::min(first_line.find_first_not_of(kBlanks), first_line.size()));
    return one_line(cut(first_line.substr(0, first_line.find_first_of(kBlanks)), kMaxLoggedWordBytes));
}

Admission server_login(std::string_view first_line, const Caller &caller,
                       const std::optional<std::string> &certificate_user)
{
    const std::optional<int> n = session_number(std::string(first_line.substr(0, first_line.find('\0'))));
    const std::string session = std::to_string(n.value_or(0));
    if (disable_login && (caller.local || caller.trusted))
        return {kEverything, false, session, "root"};
    const CommandLock lock;
    if (!n || !lock.held())
        return {};
    if (*n == 0 && certificate_user)
        return admit_by_certificate(*certificate_user);
    if (*n == 0 && !caller.trusted)
        return {.stranger = true};
    session_end_idle();
    SessionFacts facts;
    session_get(*n, facts);
    if (*n == 0 || (facts.user && facts.group && session_is_for(*n, caller))) {
        const std::shared_ptr<SessionUse> use = session_use(*n);
        return {facts.perm, false, session, facts.user.value_or(""), use, use ? use->changes() : 0};
    }
    qv_log_print(kLogDebug, "Access denied for nonsession\n");
    return {};
}

Admission relayed_login(std::string_view first_line, const Caller &caller,
                        const std::optional<PeerLogin> &login, WaitHooks *hooks)
{
    if (!login) {
        Admission admission = server_login(first_line, caller);
        if (admission.mask == 0)
            admission = {.refusal = "##Log in first#"};
        return admission;
    }
    const CommandLock lock(hooks);
    if (!lock.held())
        return {};
    Credentials credentials;
    credentials.name = login->user;
    credentials.passwords = {login->password};
    const LoginResult result =
        is_user_name(login->user) ? session_check(credentials, caller) : LoginResult{kUnknownUser};
    if (std::optional<std::string> refusal = login_refusal(result, login->user, caller))
        return {.refusal = std::move(*refusal)};
    return {user_get_perm(login->user), false, "user " + login->user + " by " + caller.source, login->user};
}

} // namespace qvcd

#include "auth/password_check.h"

#include "auth/login_delays.h"
#include "auth/stored_password.h"
#include "auth/trust.h"
#include "auth/user.h"
#include "base/limits.h"
#include "base/options.h"
#include "base/text.h"
#include "platform/log.h"
#include "platform/password_hash.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <pwd.h>

namespace qvcd {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMaxAddressBytes = 64; // of one that a client names
constexpr std::size_t kUnknownNames = 64;    // that are told apart, of one source

LoginDelays delays;

// Who fails, and what he wants.
struct Attempt {
    std::string user, source, key;
};

// The gateway of browsers asks for all of them: who fails there must not hold up the others.
bool speaks_for_others(const Caller &caller)
{
    return caller.trusted || is_gateway(caller);
}

Attempt attempt(const std::string &user, const Caller &caller, std::string_view on_behalf_of)
{
    Attempt a{user, source_of_address(caller.source), ""};
    if (speaks_for_others(caller) && !on_behalf_of.empty())
        a.source += " for " + one_line(cut(on_behalf_of, kMaxAddressBytes));
    // Names that nobody has are without number, and must not drive the others out of the table.
    a.key = a.source + "\n" +
            (user_exists(user) ? user : "?" + std::to_string(std::hash<std::string>{}(user) % kUnknownNames));
    return a;
}

PasswordCheck judge(const Attempt &who, const std::optional<std::string> &stored,
                    const std::vector<std::string> &passwords)
{
    if (const std::chrono::seconds wait = delays.left(who.key, Clock::now()); wait.count() > 0)
        return {Verdict::early, "", wait};
    for (const std::string &password : passwords) {
        if (stored && qv_password_matches(*stored, password)) {
            delays.succeeded(who.key);
            return {Verdict::right, password};
        }
    }
    if (const std::chrono::seconds wait = delays.failed(who.key, Clock::now()); wait.count() > 0)
        qv_log_print(kLogWarning, "Logins of user %s by %s have to wait for %lld s\n",
                     one_line(cut(who.user, kMaxLoggedWordBytes)).c_str(), who.source.c_str(),
                     static_cast<long long>(wait.count()));
    return {Verdict::wrong, ""};
}

// The passwords of the user that are still plain. His default one never logs in, so it goes with the other.
void hash_plain_ones(const std::string &user)
{
    std::vector<StoredPassword> changes;
    for (const char *field : {"passwd", "default"}) {
        const std::optional<std::string> stored = user_get_stored(user, field);
        if (!stored || qv_is_password_hash(*stored))
            continue;
        const auto same = std::ranges::find(changes, *stored, &StoredPassword::before);
        const std::optional<std::string> hash = same != changes.end() ? same->after : stored_form(*stored);
        if (hash)
            changes.push_back({field, *stored, *hash});
    }
    if (!changes.empty() && user_replace_stored(user, changes) != nullptr)
        qv_log_print(kLogError, "The password of user %s stays as it was\n", user.c_str());
}

} // namespace

bool is_gateway(const Caller &caller)
{
    static const std::string gateway = [] {
        const passwd *user = ::getpwnam("qvweb");
        return user ? "user " + std::to_string(user->pw_uid) : "";
    }();
    return caller.local && !gateway.empty() && caller.source == gateway;
}

PasswordCheck check_password(const std::string &user, const std::vector<std::string> &passwords,
                             const Caller &caller, std::string_view on_behalf_of)
{
    const Attempt who = attempt(user, caller, on_behalf_of);
    for (;;) {
        const std::optional<std::string> stored = user_get_passwd(user);
        PasswordCheck check{Verdict::early, "", delays.left(who.key, Clock::now())};
        if (check.wait.count() > 0)
            return check;
        if (stored && qv_is_password_hash(*stored)) {
            const HashTurn turn;
            check = judge(who, stored, passwords);
        } else {
            check = judge(who, stored, passwords);
        }
        if (user_get_passwd(user) != stored)
            continue; // it was changed while it was hashed
        if (check.verdict != Verdict::right)
            return check;
        if (!caller.trusted && user_has_built_in_password(user, check.password))
            check.verdict = Verdict::built_in;
        else if (hash_passwords)
            hash_plain_ones(user);
        return check;
    }
}

} // namespace qvcd

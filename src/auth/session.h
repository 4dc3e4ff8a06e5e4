#pragma once

#include "base/caller.h"
#include "store/tree.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

// Sessions: numbered logins of users. They last until their logout or the daemon's end, and with
// "--session-idle" until nobody has used them for that time. Beyond kMaxSessions the one that was idle
// longest ends, of those from where the new one is logged in if there is any. Changed and read only under the
// command lock.
//
// A session's node is "Session.<number>", its children are user, perm (lower-case hexadecimal), group, login
// (local time, strftime(3) "%c"), ip and server. Session 0 is the local root session; it is always there.

extern Tree sessionDB;

inline constexpr std::size_t kMaxSessions = 1000; ///< without session 0

/// When a session was used last. For the connections that use it, on any thread, without the command lock.
class SessionUse {
  public:
    using Time = std::chrono::steady_clock::time_point;

    void note(Time at = std::chrono::steady_clock::now()) noexcept
    {
        last_.store(at, std::memory_order_relaxed);
    }
    Time last() const noexcept
    {
        return listeners_ > 0 ? std::chrono::steady_clock::now() : last_.load(std::memory_order_relaxed);
    }

    /// Who listens to events uses the session all the time: one more, one less.
    void listen(int change) noexcept { listeners_ += change; }

    /// How often the session's rights have changed, its end included. Who listens for long looks at it.
    unsigned changes() const noexcept { return changes_; }
    void note_change() noexcept { ++changes_; }

  private:
    std::atomic<Time> last_ = std::chrono::steady_clock::now();
    std::atomic<int> listeners_ = 0;
    std::atomic<unsigned> changes_ = 0;
};

/// Makes the tree with session 0 and a list file (auth/session_list.h) without sessions; with `unchecked`
/// (session checking is off) session 0 stands on the list. Returns 0.
int session_load_db_file(int unchecked);

int session_unload_db_file();

inline constexpr int kUnknownUser = -1;
inline constexpr int kWrongPassword = -2;
inline constexpr int kTooEarly = -3;        ///< too many wrong passwords before
inline constexpr int kBuiltInPassword = -4; ///< right, but everybody knows it: not for an untrusted caller

inline constexpr int kNewPasswordRefused = -5;

/// What a client says to log in.
struct Credentials {
    std::string_view name;              ///< "user" or "prefix:user"
    std::vector<std::string> passwords; ///< the one as it may have been meant; none: it cannot be right
    std::optional<std::string_view> ip, server;
    std::optional<std::string> new_password =
        std::nullopt; ///< in place of the built-in one, which is then let in
};

struct LoginResult {
    int session;                  ///< its number, or one of the above
    std::chrono::seconds wait{0}; ///< kTooEarly: so long from now
    const char *error = nullptr;  ///< kNewPasswordRefused: why
};

/// Logs a user in. A prefix replaces the client's address `ip`, and the number is then derived from prefix,
/// user and password, so that a client can compute it, unless another session has that number. A session of
/// the same user from the same address is returned as it is, and can be used from where the caller is, too.
/// A new password is taken from the gateway alone (is_gateway()), and for who has the built-in one.
/// Without an address or a server "local" is noted; control characters in them become blanks. May let go of
/// the command lock (auth/password_check.h).
LoginResult session_login(const Credentials &credentials, const Caller &caller = kOwnCaller);

/// What session_login() would say, without a session: 0 when it would give one.
LoginResult session_check(const Credentials &credentials, const Caller &caller);

/// True when the caller's connections may have the session's rights: it was logged in from his address, or
/// locally by his own user; every session for who is trusted on the local socket, and the local ones for who
/// is trusted over TCP.
bool session_is_for(int n, const Caller &caller);

/// What the connections of a session tell of its use; none for session 0 and those that do not exist.
std::shared_ptr<SessionUse> session_use(int n);

/// Ends the sessions that nobody has used for `session_idle` (base/options.h). Looks at most once a second.
void session_end_idle(SessionUse::Time now = std::chrono::steady_clock::now());

/// Ends a session: 0, or -1 when there is none. Session 0 cannot be ended; the result for it is 0.
int session_logout(int n);

struct SessionFacts {
    std::optional<std::string> user;
    std::optional<std::string> group;
    unsigned perm = 0;
};

/// Fills `facts` and returns 0; for an unknown session they are emptied and 1 is returned. A session without
/// a mask leaves `facts.perm` alone.
int session_get(int n, SessionFacts &facts);

/// The session's node; none for an unknown number.
Node session_get_hdf(int n);

/// The same, for a caller with these rights: none either for a session that may do more, whose number would
/// lend it to him. Session 0 is seen by all.
Node session_seen_by(unsigned rights, int n);

/// Gives each session the rights and the group that its user has now, and ends those of users who have none.
/// For whoever changed users.
void session_follow_users();

std::optional<std::string> session_get_user(int n);

/// Writes those that session_seen_by() gives, in the nested text form. Returns 0.
int session_list(unsigned rights, std::FILE *out);

} // namespace qvcd

#pragma once

#include "web/daemon.h"

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qvcd::web {

/// Who is logged in here: random tokens, each for a session at the daemon, in memory only. Several tokens of
/// one user from one address share a session there, which ends with the last of them. For several threads.
class Sessions {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// A token that is no more.
    struct Gone {
        Who who;
        std::string digest; ///< digest_of() the token
        bool is_last;       ///< nobody has a token for the session of the daemon any more
    };
    using Ended = std::function<void(const Gone &gone)>;

    static constexpr std::size_t kMost = 512;     ///< then the one that was idle longest ends
    static constexpr std::size_t kMostOfOne = 64; ///< of one user from one address

    /// Tokens that were not used for so long end. `ended` is called, on any thread, with each that
    /// ends.
    Sessions(std::chrono::minutes idle, Ended ended) : idle_(idle), ended_(std::move(ended)) {}

    /// A new token: 64 hexadecimal digits.
    std::string add(const Who &who);

    /// The same with a token that the client has already: a credential of another kind.
    void add_as(const std::string &token, const Who &who);

    /// Whose token it is; notes its use. Nothing for one that is unknown or has ended.
    std::optional<Who> find(const std::string &token);

    /// Ends it.
    void remove(const std::string &token);

    /// Ends all tokens of a session that the daemon does not know any more.
    void forget(int daemon_session);

    /// Ends what was idle for too long.
    void end_idle(Time now = std::chrono::steady_clock::now());

    /// Ends all.
    void clear();

    std::size_t size() const;

  private:
    struct Entry {
        Who who;
        Time used;
    };
    using Entries = std::map<std::string, Entry>;

    template <class Which>
    void end(Which which);
    void make_room(const Who &who, std::vector<Gone> &over);
    void erase(Entries::iterator entry, std::vector<Gone> &over);

    const std::chrono::minutes idle_;
    const Ended ended_;
    mutable std::mutex mutex_;
    Entries entries_; // by the token's digest
};

} // namespace qvcd::web

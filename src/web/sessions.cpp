#include "web/sessions.h"

#include "web/digest.h"

#include <algorithm>

namespace qvcd::web {

std::string Sessions::add(const Who &who)
{
    const std::string token = random_token();
    add_as(token, who);
    return token;
}

void Sessions::add_as(const std::string &token, const Who &who)
{
    std::vector<Gone> over;
    {
        const std::lock_guard lock(mutex_);
        make_room(who, over);
        entries_[digest_of(token)] = {who, std::chrono::steady_clock::now()};
        // Whoever made room may have been the last of the very session.
        for (Gone &gone : over)
            gone.is_last = gone.is_last && gone.who.session != who.session;
    }
    std::ranges::for_each(over, ended_);
}

std::optional<Who> Sessions::find(const std::string &token)
{
    if (token.empty())
        return std::nullopt;
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(digest_of(token));
    const Time now = std::chrono::steady_clock::now();
    if (found == entries_.end() || now - found->second.used >= idle_)
        return std::nullopt;
    found->second.used = now;
    return found->second.who;
}

void Sessions::erase(Entries::iterator entry, std::vector<Gone> &over)
{
    Gone gone{entry->second.who, entry->first, false};
    entries_.erase(entry);
    gone.is_last = std::ranges::none_of(
        entries_, [&](const auto &other) { return other.second.who.session == gone.who.session; });
    over.push_back(std::move(gone));
}

template <class Which>
void Sessions::end(Which which)
{
    std::vector<Gone> over;
    {
        const std::lock_guard lock(mutex_);
        for (auto at = entries_.begin(); at != entries_.end();) {
            const auto entry = at++;
            if (which(*entry))
                erase(entry, over);
        }
    }
    std::ranges::for_each(over, ended_);
}

void Sessions::make_room(const Who &who, std::vector<Gone> &over)
{
    const auto is_same = [&](const auto &entry) { return entry.second.who.session == who.session; };
    const bool too_many_of_one =
        static_cast<std::size_t>(std::ranges::count_if(entries_, is_same)) >= kMostOfOne;
    if (!too_many_of_one && entries_.size() < kMost)
        return;
    auto oldest = entries_.end();
    for (auto at = entries_.begin(); at != entries_.end(); ++at) {
        if ((!too_many_of_one || is_same(*at)) &&
            (oldest == entries_.end() || at->second.used < oldest->second.used))
            oldest = at;
    }
    erase(oldest, over);
}

void Sessions::remove(const std::string &token)
{
    const std::string digest = digest_of(token);
    end([&](const auto &entry) { return entry.first == digest; });
}

void Sessions::forget(int daemon_session)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const auto &entry) { return entry.second.who.session == daemon_session; });
}

void Sessions::end_idle(Time now)
{
    end([&](const auto &entry) { return now - entry.second.used >= idle_; });
}

void Sessions::clear()
{
    end([](const auto &) { return true; });
}

std::size_t Sessions::size() const
{
    const std::lock_guard lock(mutex_);
    return entries_.size();
}

} // namespace qvcd::web

#pragma once

#include "base/caller.h"
#include "base/change_notes.h"

#include <any>
#include <map>
#include <memory>
#include <typeindex>
#include <utility>

namespace qvcd {

/// One command of one client: whose rights it has, and what was read for it already. The dispatcher makes one
/// for every line; everything that works for the command is handed it. Used by one thread.
class Request {
  public:
    /// `rights`: the caller's permission word. `who` and `changes` live longer than the request.
    explicit Request(unsigned rights, const Caller &who = kOwnCaller, ChangeNotes *changes = nullptr)
        : mask(rights), caller(who), notes(changes)
    {
    }

    /// The same command with other rights: for commands that run others on the appliance's behalf.
    Request as(unsigned rights) { return {rights, *this}; }

    const unsigned mask;
    const Caller &caller;
    ChangeNotes *const notes; ///< where what it changes is noted; null: nowhere

    /// The command's only `T`: what `make()` gave when it was asked for first. Values that belong together
    /// are read once so, and another client's command reads its own. The reference is good as long as the
    /// request.
    template <class T, class Make>
    T &once(Make make)
    {
        std::any &slot = (*seen())[typeid(T)];
        if (!slot.has_value())
            slot = T(make());
        return *std::any_cast<T>(&slot);
    }

  private:
    using Seen = std::map<std::type_index, std::any>;
    Request(unsigned rights, Request &same)
        : mask(rights), caller(same.caller), notes(same.notes), seen_(same.seen())
    {
    }

    // Made when it is needed: most commands read nothing live.
    const std::shared_ptr<Seen> &seen()
    {
        if (!seen_)
            seen_ = std::make_shared<Seen>();
        return seen_;
    }

    std::shared_ptr<Seen> seen_;
};

/// Notes for the history what the command did.
inline void note_change(const Request &request, const std::string &api, std::string_view before,
                        std::string_view after, bool secret)
{
    if (request.notes)
        request.notes->changed({api, std::string(before), std::string(after), secret});
}
/// Notes that the command is worth an entry, whatever values changed.
inline void note_event(const Request &request)
{
    if (request.notes)
        request.notes->happened = true;
}
inline void note_set(const Request &request, const std::string &api, std::string_view before,
                     std::string_view after, bool secret)
{
    if (request.notes)
        request.notes->set({api, std::string(before), std::string(after), secret});
}

} // namespace qvcd

#pragma once

#include "base/caller.h"

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
    /// `rights`: the caller's permission word. `who` lives longer than the request.
    explicit Request(unsigned rights, const Caller &who = kOwnCaller) : mask(rights), caller(who) {}

    /// The same command with other rights: for commands that run others on the appliance's behalf.
    Request as(unsigned rights) { return {rights, caller, seen()}; }

    const unsigned mask;
    const Caller &caller;

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
    Request(unsigned rights, const Caller &who, std::shared_ptr<Seen> seen)
        : mask(rights), caller(who), seen_(std::move(seen))
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

} // namespace qvcd

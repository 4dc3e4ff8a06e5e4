#pragma once

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
    /// `rights`: the caller's permission word.
    explicit Request(unsigned rights) : mask(rights) {}

    /// The same command with other rights: for commands that run others on the appliance's behalf.
    Request as(unsigned rights) { return {rights, seen()}; }

    const unsigned mask;

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
    Request(unsigned rights, std::shared_ptr<Seen> seen) : mask(rights), seen_(std::move(seen)) {}

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

#pragma once

#include "base/request.h"

#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace qvcd {

/// The actions that APIs ask for when their values are applied, each once, in the order in which they were
/// asked for: the own "apply2" before the inherited "apply".
class Actions {
  public:
    struct Action {
        std::string call;              ///< "function argument ..."
        std::vector<std::string> apis; ///< some of those that asked for it, the first one at least
    };

    /// `most`: APIs whose actions would make more are told kNoRoom.
    explicit Actions(std::size_t most = std::numeric_limits<std::size_t>::max()) : most_(most) {}

    enum class Added { nothing, taken, no_room };

    /// Takes an API's actions. "nothing": it has none. Used under the command lock.
    Added add(const std::string &api);

    const std::vector<Action> &all() const & { return actions_; }
    std::vector<Action> all() && { return std::move(actions_); }

  private:
    bool take(const std::string &call, const std::string &api);

    std::size_t most_;
    std::vector<Action> actions_;
};

/// Of actions that ask to run later, so that the client has its reply before they cut it off.
enum class Delay { kept, none };

bool runs_later(const Actions::Action &action);

/// Runs one; with its delay kept it may run after this has returned 0, or never when the daemon ends. A
/// failure is logged, and remembered (base/failures.h). Lets go of the command lock.
ActionRun run_action(Request &request, const Actions::Action &action, Delay delay = Delay::kept);

} // namespace qvcd

#pragma once

#include "base/text.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qvcd {

/// One API whose value changed.
struct ValueChange {
    std::string api;
    std::string before;
    std::string after;
    bool secret = false;

    bool operator==(const ValueChange &) const = default;
};

/// As it is shown and kept: of a secret both values are hidden.
inline ValueChange value_change(std::string api, std::string_view before, std::string_view after, bool secret)
{
    const auto kept = [&](std::string_view value) { return std::string(secret ? kHiddenPassword : value); };
    return {std::move(api), kept(before), kept(after), secret};
}

/// One action that ran, with its wait status (waitpid(2)), or another number but 0 after a failure.
struct ActionRun {
    std::string action;
    int status = 0;
    std::vector<std::string> errors = {}; ///< after a failure: the first lines of what it said of errors

    bool operator==(const ActionRun &) const = default;
};

/// What one command changed, for the history, which keeps no secret. A command that changes nothing that
/// stays has none.
class ChangeNotes {
  public:
    /// Which values are noted: those that are written or applied; those that are set, too.
    enum class Level { lasting, all };

    explicit ChangeNotes(Level level) : level_(level) {}

    void set(ValueChange change)
    {
        if (level_ == Level::all)
            changed(std::move(change));
    }
    /// Of several changes of one API the first says what was before.
    void changed(ValueChange change)
    {
        const auto [known, fresh] = places_.try_emplace(change.api, values.size());
        if (fresh)
            values.push_back(std::move(change));
        else
            values[known->second].after = std::move(change.after);
    }
    void clear()
    {
        happened = false;
        values.clear();
        actions.clear();
        places_.clear();
    }
    void ran(ActionRun run) { actions.push_back(std::move(run)); }

    bool happened = false; ///< something else changed, or the command is worth an entry anyway
    std::vector<ValueChange> values;
    std::vector<ActionRun> actions;

  private:
    Level level_;
    std::unordered_map<std::string, std::size_t> places_; // in values
};

} // namespace qvcd

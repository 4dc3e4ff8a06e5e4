#pragma once

#include <map>
#include <string>

#include "platform/fd.h"

namespace qvcd::client::fleet {

/// What a rolling commit has done so far, in a file of the user's: who is cut off and comes again with the
/// same command goes on there. No values stand in it.
class Journal {
  public:
    enum class State {
        open,  ///< nothing was asked, or it is undone
        asked, ///< it may stand, and wait for its confirmation
        done,  ///< confirmed, or there was nothing to change
        failed,
        undone, ///< with its batch
    };

    /// Of the run that `what` describes, with the fleet that it is about. One that was not touched for a day
    /// counts as ended. Throws UsageError when another process has it, or it cannot be written.
    explicit Journal(const std::string &what);

    bool is_resumed() const { return resumed_; }
    const std::string &run() const { return run_; } ///< a word of its own, for the history

    State state(const std::string &id) const;
    void note(const std::string &id, State state); ///< is on the disk then

    void end(); ///< nothing is left to be done

  private:
    void read(const std::string &text);

    std::string file_;
    Fd fd_;
    bool resumed_ = false;
    std::string run_;
    std::map<std::string, State> states_;
};

} // namespace qvcd::client::fleet

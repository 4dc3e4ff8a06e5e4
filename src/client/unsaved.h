#pragma once

#include <set>
#include <string>

#include "client/command.h"
#include "client/options.h"

namespace qvcd::client {

/// The settings that were changed and not saved, by whomever, and those of them that this shell changed.
class Unsaved {
  public:
    enum class Any { none, some, unknown };

    /// Asks the daemon, after a command of this shell whose words have whole names.
    void look(const Options &options, const Words &words);

    Any any() const { return any_; }
    const std::set<std::string> &own() const { return own_; }

  private:
    void take_own(const Words &words, const std::set<std::string> &now);

    Any any_ = Any::unknown;
    std::set<std::string> seen_; // as changed, the last time
    int seen_by_ = -1;           // this session
    std::set<std::string> own_;
};

} // namespace qvcd::client

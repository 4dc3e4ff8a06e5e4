#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/fleet/fleet.h"

namespace qvcd::client::fleet {

/// Which appliances are meant: "FACT=PATTERN,...", all of which must fit. A fact is "id" or a member of the
/// status ("online" is yes or no); a pattern is the shell's, "*" and "?" and "[...]".
/// A fact that an appliance does not tell fits the empty pattern alone.
class Where {
  public:
    /// Without a text: all. Throws UsageError.
    explicit Where(const std::optional<std::string> &text);

    bool fits(const std::string &id, const Member &member) const;

    /// The ids of those that fit, in order; of those that are online where so many must answer.
    std::vector<std::string> all(const Fleet &fleet) const;
    std::vector<std::string> online(const Fleet &fleet) const;

  private:
    std::vector<std::pair<std::string, std::string>> patterns_;
};

} // namespace qvcd::client::fleet

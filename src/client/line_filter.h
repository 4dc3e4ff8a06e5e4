#pragma once

#include <memory>
#include <regex.h>
#include <string>
#include <string_view>
#include <vector>

#include "client/command.h"

namespace qvcd::client {

/// What stands behind a "|": `match WORD`, `except WORD` (an extended regular expression of POSIX, upper and
/// lower case are alike) or `count`.
class LineFilter {
  public:
    /// Throws UsageError for what is none of them.
    explicit LineFilter(const Words &words);

    /// True when the line goes on.
    bool take(const std::string &line);

    /// What comes behind the last line: the count, or nothing.
    std::string end() const;

  private:
    struct Free {
        void operator()(regex_t *pattern) const noexcept;
    };
    std::unique_ptr<regex_t, Free> pattern_; // null: counts
    bool wants_match_ = true;
    std::size_t count_ = 0;
};

/// The names of the filters.
std::vector<std::string> filter_names();

/// While it lives, what is written to standard output goes through the filters, line by line.
class FilteredOutput {
  public:
    /// Throws std::system_error.
    explicit FilteredOutput(std::vector<LineFilter> &filters);
    ~FilteredOutput();
    FilteredOutput(const FilteredOutput &) = delete;
    FilteredOutput &operator=(const FilteredOutput &) = delete;

  private:
    class Pump;
    std::unique_ptr<Pump> pump_; // none: there is nothing to filter
};

} // namespace qvcd::client

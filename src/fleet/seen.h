#pragma once

#include <cstddef>
#include <deque>
#include <list>
#include <map>
#include <set>
#include <string>

namespace qvcd {

/// Which requests have come: a broker delivers "at least once". Of so many callers the last ids of each are
/// known; of more callers the one who asked longest ago is forgotten.
class Seen {
  public:
    static constexpr std::size_t kCallers = 64;
    static constexpr std::size_t kIds = 256;

    bool holds(const std::string &caller, const std::string &id) const;
    void note(const std::string &caller, const std::string &id);

  private:
    struct Ids {
        std::deque<std::string> by_age; // the oldest first
        std::set<std::string> all;
        std::list<std::string>::iterator place;
    };
    std::map<std::string, Ids> callers_;
    std::list<std::string> by_use_; // the one who asked longest ago first
};

} // namespace qvcd

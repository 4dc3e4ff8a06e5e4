#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace qvcd::web {

/// "event: NAME" without anything else to say.
std::string named_event(const std::string &name);

/// The last events of one connection to the daemon, as text of an event stream. The ids there are
/// "DAEMON-NUMBER": of another daemon's events none is known.
class EventRing {
  public:
    static constexpr std::size_t kMost = 1000;

    /// `start`: the first line that the daemon said.
    explicit EventRing(const std::string &start);

    /// The text of the daemon's event. Null for what is none.
    std::shared_ptr<const std::string> add(const std::string &event);

    /// What somebody lacks who has seen the event `last` (empty: he begins now): the events since, or
    /// "reset".
    std::vector<std::shared_ptr<const std::string>> since(const std::string &last) const;

    /// "reset": something was missed. Says where it goes on.
    std::string reset() const;

  private:
    struct Event {
        std::uint64_t number;
        std::shared_ptr<const std::string> text;
    };
    std::string id_line(std::uint64_t number) const;
    std::uint64_t last() const { return events_.empty() ? before_ : events_.back().number; }

    std::string daemon_;
    std::uint64_t before_ = 0; // the last one that is not kept
    std::deque<Event> events_;
};

} // namespace qvcd::web

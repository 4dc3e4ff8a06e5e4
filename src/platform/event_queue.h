#pragma once

#include "platform/notify_bus.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace qvcd {

/// True when the pattern fits the name, or a group above it: "*" stands for any bytes but dots, "?" for one.
/// Takes at most the product of both lengths.
bool fits_pattern(std::string_view pattern, std::string_view name);

/// What one listener wants to know, and may.
struct EventFilter {
    unsigned rights = 0;             ///< permission mask
    bool sees_sessions = false;      ///< Notification::payload rather than public_payload
    std::string source;              ///< whose places it takes; empty: an administrator's
    std::vector<std::string> names;  ///< patterns of the part before "="; none: all
    std::vector<std::string> events; ///< none: all

    bool lets_pass(const Notification &event) const;
};

/// The lines of one event for listeners of this process; each is made when the first one wants it.
class EventLines {
  public:
    explicit EventLines(const Notification &event) : event_(event) {}
    const Notification &event() const { return event_; }
    const std::string &line(bool sees_sessions);

  private:
    const Notification &event_;
    std::string whole_, hidden_;
};

/// What one listener has not taken yet. The bus puts in, whoever serves the listener takes out. Bounded: who
/// does not take gets an end instead. Thread-safe.
class EventQueue {
  public:
    static constexpr std::size_t kMostBytes = std::size_t{512} << 10;

    explicit EventQueue(EventFilter filter) : filter_(std::move(filter)) {}
    const EventFilter &filter() const { return filter_; }

    /// What the server does: `wake` is called, on the bus's thread, when there is news, and `is_entitled`
    /// tells with each event whether the listener may still listen.
    void serve(std::function<void()> wake, std::function<bool()> is_entitled);

    // For the bus.
    void begin_behind(std::uint64_t id) { last_before_ = id; } ///< before it is known to the bus
    void offer(EventLines &lines);
    void lose(); ///< events that it would have got are lost

    // For the listener's side.
    enum class End { none, lost, not_entitled };
    struct News {
        std::string lines;
        End end = End::none; ///< behind the lines; nothing more comes
    };
    bool has_news() const;
    News take();
    std::size_t held() const; ///< bytes

  private:
    void end(End why);

    const EventFilter filter_;
    std::uint64_t last_before_ = 0;
    mutable std::mutex mutex_; // guards what follows
    std::function<void()> wake_;
    std::function<bool()> is_entitled_;
    std::string lines_;
    End end_ = End::none;
    bool end_is_told_ = false;
};

} // namespace qvcd

#include "platform/event_queue.h"

#include "platform/counters.h"

#include <algorithm>
#include <utility>

namespace qvcd {

// Backtracks to the last "*" only: what stands behind a "." of the pattern is pinned by it.
bool fits_pattern(std::string_view pattern, std::string_view name)
{
    std::size_t p = 0;
    std::size_t n = 0;
    std::size_t star = std::string_view::npos;
    std::size_t behind = 0; // where in the name the star's part ends
    for (;;) {
        const bool is_end = n == name.size() || name[n] == '.';
        if (p == pattern.size() && is_end)
            return true;
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            behind = n;
        } else if (p < pattern.size() && n < name.size() &&
                   (pattern[p] == name[n] || (pattern[p] == '?' && !is_end))) {
            ++p;
            ++n;
        } else if (star != std::string_view::npos && behind < name.size() && name[behind] != '.') {
            p = star + 1;
            n = ++behind;
        } else {
            return false;
        }
    }
}

bool EventFilter::lets_pass(const Notification &event) const
{
    if (!event.audience.holds(rights))
        return false;
    const std::string_view name = std::string_view(event.payload).substr(0, event.payload.find('='));
    const auto fits = [&](const std::string &pattern) { return fits_pattern(pattern, name); };
    return (events.empty() || std::ranges::count(events, event.event) != 0) &&
           (names.empty() || std::ranges::any_of(names, fits));
}

const std::string &EventLines::line(bool sees_sessions)
{
    std::string &line = sees_sessions ? whole_ : hidden_;
    if (line.empty())
        line = stream_line(event_, sees_sessions);
    return line;
}

void EventQueue::serve(std::function<void()> wake, std::function<bool()> is_entitled)
{
    const std::lock_guard lock(mutex_);
    wake_ = std::move(wake);
    is_entitled_ = std::move(is_entitled);
}

void EventQueue::offer(EventLines &lines)
{
    if (lines.event().id <= last_before_)
        return;
    const std::string *const line =
        filter_.lets_pass(lines.event()) ? &lines.line(filter_.sees_sessions) : nullptr;
    const std::lock_guard lock(mutex_);
    if (end_ != End::none)
        return;
    const bool was_empty = lines_.empty();
    if (is_entitled_ && !is_entitled_())
        return end(End::not_entitled);
    if (!line)
        return;
    if (lines_.size() + line->size() > kMostBytes)
        return end(End::lost);
    lines_ += *line;
    if (was_empty && wake_)
        wake_();
}

void EventQueue::lose()
{
    const std::lock_guard lock(mutex_);
    if (end_ == End::none)
        end(End::lost);
}

void EventQueue::end(End why)
{
    end_ = why;
    if (why == End::lost)
        ++counters.lost_listeners;
    if (why == End::not_entitled)
        lines_ = std::string();
    if (wake_)
        wake_();
}

bool EventQueue::has_news() const
{
    const std::lock_guard lock(mutex_);
    return !lines_.empty() || (end_ != End::none && !end_is_told_);
}

EventQueue::News EventQueue::take()
{
    const std::lock_guard lock(mutex_);
    end_is_told_ = end_ != End::none;
    return {std::exchange(lines_, std::string()), end_};
}

std::size_t EventQueue::held() const
{
    const std::lock_guard lock(mutex_);
    return lines_.capacity();
}

} // namespace qvcd

#include "web/event_text.h"

#include "web/json.h"

#include <charconv>

namespace qvcd::web {

namespace {

constexpr std::string_view kDaemon = "daemon=";

// "daemon=1795447742026133168 entry=41"
std::string daemon_in(const std::string &payload)
{
    if (!payload.starts_with(kDaemon))
        return "";
    return payload.substr(kDaemon.size(), payload.find(' ') - kDaemon.size());
}

// Numbers of sessions are credentials, and the daemon tells them to who has every right.
void hide_sessions(Json &event)
{
    const std::string kind = event.value("event", "");
    if (kind != "login" && kind != "logout")
        return;
    const std::string payload = event.value("payload", "");
    event["payload"] = payload.substr(0, payload.find('='));
}

} // namespace

std::string named_event(const std::string &name)
{
    return "event: " + name + "\ndata: {}\n\n";
}

EventRing::EventRing(const std::string &start)
{
    const Json json = Json::parse(start, nullptr, false);
    if (!json.is_object())
        return;
    daemon_ = daemon_in(json.value("payload", ""));
    before_ = json.value("id", std::uint64_t{0});
}

std::string EventRing::id_line(std::uint64_t number) const
{
    return "id: " + daemon_ + "-" + std::to_string(number) + "\n";
}

std::string EventRing::reset() const
{
    return id_line(last()) + named_event("reset");
}

std::shared_ptr<const std::string> EventRing::add(const std::string &event)
{
    Json json = Json::parse(event, nullptr, false);
    if (!json.is_object())
        return nullptr;
    hide_sessions(json);
    const std::uint64_t number = json.value("id", last());
    auto text = std::make_shared<const std::string>(id_line(number) + "data: " + text_of(json) + "\n\n");
    events_.push_back({number, text});
    if (events_.size() > kMost) {
        before_ = events_.front().number;
        events_.pop_front();
    }
    return text;
}

std::vector<std::shared_ptr<const std::string>> EventRing::since(const std::string &seen) const
{
    const auto one = [](std::string text) {
        return std::vector{std::make_shared<const std::string>(std::move(text))};
    };
    if (seen.empty())
        return one(id_line(last()) + "\n");
    const std::string front = daemon_ + "-";
    std::uint64_t number = 0;
    const char *end = seen.data() + seen.size();
    if (!seen.starts_with(front) || std::from_chars(seen.data() + front.size(), end, number).ptr != end ||
        number < before_)
        return one(reset());
    std::vector<std::shared_ptr<const std::string>> missed;
    for (const Event &event : events_) {
        if (event.number > number)
            missed.push_back(event.text);
    }
    return missed;
}

} // namespace qvcd::web

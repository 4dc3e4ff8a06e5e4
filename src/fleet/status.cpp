#include "fleet/status.h"

#include "base/command_lock.h"
#include "change/report.h"
#include "fleet/revision.h"
#include "platform/event_queue.h"
#include "platform/host_name.h"

#include <condition_variable>
#include <ctime>
#include <mutex>
#include <nlohmann/json.hpp>

namespace qvcd {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto kSoon = 300ms;      // after an event: a save brings many
constexpr auto kLookEvery = 10s;   // at links and other live values
constexpr auto kTellEvery = 15min; // so that the uptime is no older
constexpr unsigned kAllRights = 0xffff;

std::string text_of(const nlohmann::json &object)
{
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

struct Status::Bell {
    std::mutex mutex;
    std::condition_variable rings;
    bool rung = false;
    bool stopping = false;

    void ring(bool last = false)
    {
        const std::lock_guard lock(mutex);
        rung = true;
        stopping = stopping || last;
        rings.notify_all();
    }
    // True when it rang; then a moment more for what follows.
    bool wait()
    {
        std::unique_lock lock(mutex);
        if (!rings.wait_for(lock, kLookEvery, [this] { return rung; }))
            return false;
        rings.wait_for(lock, kSoon, [this] { return stopping; });
        rung = false;
        return true;
    }
};

Status::Status(std::shared_ptr<MqttClient> broker)
    : broker_(std::move(broker)), bell_(std::make_shared<Bell>())
{
}

void Status::stop()
{
    bell_->ring(true);
}

// A stream that was lost, by too many events at once, is begun anew.
void Status::listen()
{
    if (events_ && events_->take().end == EventQueue::End::none)
        return;
    EventFilter all;
    all.rights = kAllRights;
    events_ = std::make_shared<EventQueue>(std::move(all));
    events_->serve([bell = bell_] { bell->ring(); }, nullptr);
    qvnotify_listen(events_);
}

void Status::run()
{
    {
        const CommandLock lock;
        if (!lock.held())
            return;
        names_ = fact_names(broker_->config().facts);
        for (auto &link : link_names())
            names_.push_back(std::move(link));
    }
    listen();
    for (bool changed = true; !changed || survey(); changed = bell_->wait()) {
        listen();
        if (!look())
            return;
    }
}

// False when the daemon stops.
bool Status::survey()
{
    {
        const std::lock_guard lock(bell_->mutex);
        if (bell_->stopping)
            return false;
    }
    const std::optional<Survey> found = survey_settings();
    if (found) {
        revision_ = found->revision;
        modified_ = found->modified;
        unapplied_ = found->unapplied;
    }
    return found.has_value();
}

bool Status::look()
{
    Facts facts;
    {
        const CommandLock lock;
        if (!lock.held())
            return false;
        Request request(kInternalMask);
        facts = read_facts(request, names_);
    }
    tell(facts);
    return true;
}

void Status::tell(const Facts &facts)
{
    constexpr std::string_view kLink = "link.";
    nlohmann::json status = {{"id", broker_->config().id}, {"host", host_name()}, {"online", false}};
    nlohmann::json links = nlohmann::json::object();
    for (const auto &[name, value] : facts) {
        if (name.starts_with(kLink))
            links[name.substr(kLink.size())] = value;
        else
            status[name] = value;
    }
    const std::string farewell = text_of(status);
    status["online"] = true;
    status["revision"] = revision_;
    status["modified"] = modified_;
    status["unapplied"] = unapplied_;
    status["links"] = std::move(links);
    const std::string lasting = text_of(status);
    const auto now = steady_clock::now();
    if (lasting == told_ && now - told_at_ < kTellEvery)
        return;
    told_ = lasting;
    told_at_ = now;
    status["uptime"] = std::chrono::duration_cast<std::chrono::seconds>(now - started_).count();
    status["time"] = time_text(std::time(nullptr));
    broker_->tell_status(text_of(status), farewell);
}

} // namespace qvcd

#include "client/fleet/fleet.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "client/errors.h"
#include "platform/crypto.h"
#include "platform/mqtt.h"
#include "qvclient/reply.h"

namespace qvcd::client::fleet {

namespace {

using namespace std::chrono_literals;

constexpr auto kConnectPatience = 15s;
constexpr auto kAttempt = 10s; // then what is harmless is asked again
constexpr auto kTick = 100ms;
constexpr auto kSoon = 500ms;
constexpr char kMarker[] = "-"; // the last level of a topic of our own
constexpr std::size_t kMostStatusBytes = std::size_t{64} << 10;
constexpr std::size_t kMostReplyBytes = std::size_t{8} << 20; // as the appliances keep it
constexpr int kDeepest = 16;

std::string hex(std::uint32_t number)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%08x", number);
    return text.data();
}

std::string caller_name(const std::string &user)
{
    return is_topic_level(user) ? user : "qvc-" + hex(qvcrypto_random31());
}

std::string property(const Happening &happening, std::string_view name)
{
    const auto found =
        std::ranges::find(happening.properties, name, [](const auto &pair) { return pair.first; });
    return found == happening.properties.end() ? "" : found->second;
}

int number(const std::string &text)
{
    int n = 0;
    std::from_chars(text.data(), text.data() + text.size(), n);
    return n;
}

// The level of a topic behind `front`; nothing when there is none, or more.
std::optional<std::string> level_behind(const std::string &topic, const std::string &front)
{
    if (!topic.starts_with(front) || topic.find('/', front.size()) != std::string::npos)
        return std::nullopt;
    return topic.substr(front.size());
}

} // namespace

std::string json_line(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json json_of(std::string_view text)
{
    return Json::parse(
        text, [](int depth, Json::parse_event_t, Json &) { return depth <= kDeepest; }, false);
}

std::string Member::fact(const std::string &name) const
{
    if (name == "online")
        return is_online() ? "yes" : "no";
    const auto found = status.find(name);
    if (found == status.end())
        return "";
    return found->is_string() ? found->get<std::string>() : json_line(*found);
}

Fleet::Fleet(const Settings &settings)
    : settings_(settings), topics_(settings.prefix + "/fleet/"), caller_(caller_name(settings.broker_user)),
      run_(hex(qvcrypto_random31())), link_(settings)
{
    gather();
}

std::string Fleet::name() const
{
    return settings_.host + ":" + std::to_string(settings_.port) + "/" + settings_.prefix;
}

// The broker sends what it kept when it is subscribed to. What we send ourselves behind that comes last.
void Fleet::gather()
{
    const auto deadline = Clock::now() + kConnectPatience;
    while (!is_gathered_) {
        std::optional<Happening> happening = link_.next(deadline);
        if (!happening || Clock::now() >= deadline) // what comes may have no end
            throw WireError("the broker does not answer");
        take(std::move(*happening));
        if (!refusal_.empty())
            throw WireError(refusal_);
    }
}

void Fleet::subscribe()
{
    link_.subscribe({topics_ + "reply/" + caller_ + "/+"}, 1);
    link_.subscribe({topics_ + "status/+"}, 0); // in any number
    if (on_event_)
        link_.subscribe({settings_.prefix + "/+/+"}, 0);
}

void Fleet::take(Happening &&happening)
{
    switch (happening.kind) {
    case Happening::Kind::connected:
        is_up_ = true;
        if (on_event_)
            on_event_({"", "is back", ""});
        return subscribe();
    case Happening::Kind::lost:
        if (!is_gathered_)
            refusal_ = happening.reason;
        return take_loss();
    case Happening::Kind::subscribed:
        if (!happening.reason.empty())
            refusal_ = "the broker does not let us listen to statuses and replies";
        link_.send({.topic = topics_ + "reply/" + caller_ + "/" + kMarker,
                    .payload = "",
                    .response_topic = "",
                    .correlation = run_ + std::to_string(++count_)});
        return;
    case Happening::Kind::not_taken:
        if (!is_gathered_)
            refusal_ = "the broker does not let us write to our own reply topic: " + happening.reason;
        return not_taken(happening);
    case Happening::Kind::message:
        break;
    }
    if (const auto id = level_behind(happening.topic, topics_ + "status/"))
        take_status(*id, happening.payload);
    else if (happening.topic.starts_with(topics_ + "reply/"))
        take_reply(std::move(happening));
    else if (on_event_) {
        const std::size_t front = settings_.prefix.size() + 1;
        const std::size_t slash = std::min(happening.topic.find('/', front), happening.topic.size());
        on_event_({happening.topic.substr(front, slash - front),
                   happening.topic.substr(std::min(slash + 1, happening.topic.size())), happening.payload});
    }
}

void Fleet::take_status(const std::string &id, const std::string &payload)
{
    if (!is_topic_level(id)) // such an id no appliance has
        return;
    Json status = payload.size() <= kMostStatusBytes ? json_of(payload) : Json();
    if (!status.is_object()) { // who clears a status takes the appliance out
        members_.erase(id);
        return;
    }
    Member &member = members_[id];
    const bool was_online = member.is_online();
    const bool was_told = member.status.value("online", false); // also before the broker was lost
    member = {std::move(status), true};
    member.status["id"] = id; // whatever it calls itself
    if (!member.status["online"].is_boolean())
        member.status["online"] = false;
    if (on_event_ && is_gathered_ && was_told != member.is_online())
        on_event_({id, member.is_online() ? "online" : "offline", ""});
    if (!was_online || member.is_online())
        return;
    for (auto next = sent_.begin(); next != sent_.end();) {
        const Place place = next++;
        if (place->id == id)
            give_up(place, "it went away");
    }
}

// The parts come in order; a part that comes again is passed over.
void Fleet::take_reply(Happening &&happening)
{
    if (happening.topic.ends_with(std::string("/") + kMarker)) {
        is_gathered_ = is_gathered_ || happening.correlation == run_ + "2"; // behind both subscriptions
        return;
    }
    const auto found = by_correlation_.find(happening.correlation);
    if (found == by_correlation_.end() ||
        happening.topic != topics_ + "reply/" + caller_ + "/" + found->second->id ||
        number(property(happening, "part")) != found->second->next_part)
        return;
    const Place place = found->second;
    place->text += happening.payload;
    if (place->text.size() > kMostReplyBytes)
        return finish(place, {.how = Answer::How::silent, .problem = "its reply is too long"});
    if (number(property(happening, "parts")) > place->next_part++)
        return;
    Answer answer{.how = Answer::How::answered};
    ReplyParser parser([&](std::string_view line) { answer.lines.emplace_back(line); });
    parser.feed(place->text);
    const bool is_refused = !property(happening, "refused").empty();
    if (is_refused && place->text.starts_with("##Too many"))
        return again(place, kSoon);
    if (is_refused)
        answer.how = Answer::How::away;
    else if (!parser.result())
        answer.how = Answer::How::silent;
    answer.result = parser.result().value_or(1);
    if (answer.how != Answer::How::answered ||
        answer.lines == std::vector<std::string>{"##The connection was lost#"}) {
        answer.problem = answer.lines.empty() ? "its reply broke off" : answer.lines[0];
        answer.how = is_refused ? Answer::How::away : Answer::How::silent;
    }
    finish(place, answer);
}

void Fleet::take_loss()
{
    if (on_event_ && is_up_)
        on_event_({"", "went away", ""});
    is_up_ = false;
    for (auto &[id, member] : members_)
        member.is_known = false;
    while (!sent_.empty())
        give_up(sent_.begin(), "the broker went away");
}

// What nobody got was not run.
void Fleet::not_taken(const Happening &happening)
{
    const auto message = by_message_.find(happening.message_id);
    if (message == by_message_.end())
        return;
    const auto found = by_correlation_.find(message->second);
    by_message_.erase(message);
    if (found == by_correlation_.end())
        return;
    if (happening.reason.empty())
        return again(found->second, kSoon);
    finish(found->second, {.how = Answer::How::away, .problem = "the broker: " + happening.reason});
}

void Fleet::ask(const std::string &id, Question question, OnAnswer on_answer)
{
    const auto deadline = Clock::now() + question.patience;
    waiting_.push_back({id, std::move(question), std::move(on_answer), deadline});
}

bool Fleet::send(Asked &asked)
{
    const auto left = asked.deadline - Clock::now();
    const auto attempt = asked.question.is_harmless ? std::min<Clock::duration>(left, kAttempt) : left;
    asked.correlation = run_ + std::to_string(++count_);
    asked.text.clear();
    asked.next_part = 1;
    asked.attempt_end = Clock::now() + attempt;
    const std::optional<int> message = link_.send(
        {.topic = topics_ + "request/" + asked.id,
         .payload = asked.question.lines,
         .response_topic = topics_ + "reply/" + caller_ + "/" + asked.id,
         .correlation = asked.correlation,
         .properties = {{"user", settings_.user}, {"password", settings_.password}, {"client", "qvc-fleet"}},
         .expiry = std::chrono::ceil<std::chrono::seconds>(attempt)});
    if (message)
        by_message_[asked.message = *message] = asked.correlation;
    return message.has_value();
}

void Fleet::send_more()
{
    if (!is_up_)
        return;
    const auto now = Clock::now();
    for (auto next = waiting_.begin(); next != waiting_.end() && sent_.size() < kWindow;) {
        const Place place = next++;
        const auto member = members_.find(place->id);
        if (place->not_before > now || member == members_.end() || !member->second.is_online())
            continue;
        if (!send(*place)) // the library knows before we do that the broker is away
            return;
        place->is_sent = true;
        sent_.splice(sent_.end(), waiting_, place);
        by_correlation_[place->correlation] = place;
    }
}

// What is on the way, or was.
void Fleet::forget(const Asked &asked)
{
    by_correlation_.erase(asked.correlation);
    const auto message = by_message_.find(asked.message);
    if (message != by_message_.end() && message->second == asked.correlation)
        by_message_.erase(message);
}

void Fleet::again(Place place, std::chrono::milliseconds later)
{
    forget(*place);
    place->not_before = Clock::now() + later;
    place->is_sent = false;
    waiting_.splice(waiting_.end(), sent_, place);
}

// No answer to what was sent.
void Fleet::give_up(Place place, const std::string &problem)
{
    if (place->question.is_harmless && Clock::now() < place->deadline)
        return again(place, 0ms);
    finish(place, {.how = Answer::How::silent, .problem = problem});
}

void Fleet::finish(Place place, const Answer &answer)
{
    forget(*place);
    std::list<Asked> done;
    done.splice(done.end(), place->is_sent ? sent_ : waiting_, place);
    done.front().on_answer(answer);
}

void Fleet::look_at_time()
{
    const auto now = Clock::now();
    for (auto next = sent_.begin(); next != sent_.end();) {
        const Place place = next++;
        if (place->attempt_end <= now)
            give_up(place, "it did not answer in time");
    }
    for (auto next = waiting_.begin(); next != waiting_.end();) {
        const Place place = next++;
        if (place->deadline <= now)
            finish(place, {.how = Answer::How::away, .problem = "it is not online"});
    }
}

void Fleet::work(const std::function<void()> &on_step)
{
    auto tick = Clock::now() + kTick;
    while (!waiting_.empty() || !sent_.empty()) {
        send_more();
        if (std::optional<Happening> happening = link_.next(tick))
            take(std::move(*happening));
        if (Clock::now() < tick)
            continue;
        look_at_time();
        tick = Clock::now() + kTick;
        if (on_step)
            on_step();
    }
}

void Fleet::rest(std::chrono::seconds time)
{
    const auto end = Clock::now() + time;
    while (Clock::now() < end) {
        if (std::optional<Happening> happening = link_.next(end))
            take(std::move(*happening));
    }
}

void Fleet::watch(const std::function<void(const Event &)> &on_event, const std::function<bool()> &stops)
{
    on_event_ = on_event;
    link_.subscribe({settings_.prefix + "/+/+"}, 0);
    while (!stops()) {
        if (std::optional<Happening> happening = link_.next(Clock::now() + kSoon))
            take(std::move(*happening));
    }
}

} // namespace qvcd::client::fleet

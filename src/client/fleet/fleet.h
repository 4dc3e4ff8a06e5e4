#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/fleet/link.h"
#include "client/fleet/settings.h"

namespace qvcd::client::fleet {

using Json = nlohmann::ordered_json;

/// One line; bytes that are no UTF-8 are replaced.
std::string json_line(const Json &json);

/// What an appliance sent; discarded when it is no JSON. What is nested too deep for us is left out.
Json json_of(std::string_view text);

/// An appliance as its status tells.
struct Member {
    Json status = Json::object();
    bool is_known = true; ///< since we are connected to the broker, this time

    bool is_online() const { return is_known && status.value("online", false); }
    std::string fact(const std::string &name) const; ///< as a text; empty when there is none
};

/// What became of a request.
struct Answer {
    enum class How {
        answered,
        silent, ///< no whole reply: whether it was run is not known
        away,   ///< it was not run: the appliance is not online, or refused it
    };
    How how = How::away;
    std::vector<std::string> lines = {};
    int result = 1;
    std::string problem = {}; ///< in words, unless it was answered
};

/// The appliances of one broker. Used by one thread.
class Fleet {
  public:
    /// Connects, and learns of all statuses. Throws WireError.
    explicit Fleet(const Settings &settings);

    /// Which fleet it is: the broker's host and port, and the prefix of the topics.
    std::string name() const;

    const std::map<std::string, Member> &members() const { return members_; }

    struct Question {
        std::string lines;       ///< commands of the wire, each with its newline
        bool is_harmless = true; ///< it may be asked again when no answer comes
        std::chrono::seconds patience{30};
    };
    using OnAnswer = std::function<void(const Answer &answer)>;

    /// Asks during work(); at most kWindow are on the way at once.
    void ask(const std::string &id, Question question, OnAnswer on_answer);
    static constexpr std::size_t kWindow = 256;

    /// Until everything is answered; what on_answer asks, too. `on_step` is called some times a second.
    void work(const std::function<void()> &on_step = {});

    /// Takes what comes for so long.
    void rest(std::chrono::seconds time);

    /// Tells of events, and of appliances that come and go, until `stops` gives true, which is asked twice a
    /// second. An event without an id is about the broker: it "went away", or "is back".
    struct Event {
        std::string id, name, payload;
    };
    void watch(const std::function<void(const Event &)> &on_event, const std::function<bool()> &stops);

  private:
    using Clock = std::chrono::steady_clock;
    struct Asked {
        std::string id;
        Question question;
        OnAnswer on_answer;
        Clock::time_point deadline{};    // of the whole
        Clock::time_point attempt_end{}; // of what is on the way
        Clock::time_point not_before{};
        bool is_sent = false;
        std::string correlation = {}; // of what is on the way
        int message = 0;              // its number
        std::string text = {};
        int next_part = 1;
    };
    using Place = std::list<Asked>::iterator;

    void gather();
    void subscribe();
    void take(Happening &&happening);
    void take_status(const std::string &id, const std::string &payload);
    void take_reply(Happening &&happening);
    void take_loss();
    void forget(const Asked &asked);
    void not_taken(const Happening &happening);
    void send_more();
    bool send(Asked &asked);
    void look_at_time();
    void again(Place place, std::chrono::milliseconds later);
    void give_up(Place place, const std::string &problem);
    void finish(Place place, const Answer &answer);

    const Settings settings_;
    const std::string topics_; // "<prefix>/fleet/"
    const std::string caller_, run_;
    Link link_;
    std::map<std::string, Member> members_;
    bool is_up_ = false;
    bool is_gathered_ = false;
    std::string refusal_;
    unsigned long count_ = 0;
    std::list<Asked> waiting_, sent_;
    std::unordered_map<std::string, Place> by_correlation_;
    std::unordered_map<int, std::string> by_message_; // the correlation
    std::function<void(const Event &)> on_event_;
};

} // namespace qvcd::client::fleet

#include "client/local_commands.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "client/errors.h"
#include "client/reply.h"
#include "client/signal_input.h"
#include "client/terminal_text.h"
#include "qvclient/escape.h"
#include "qvclient/event_stream.h"

namespace qvcd::client {

namespace {

struct WatchOptions {
    bool json = false;
    bool times = false;
    std::vector<std::string> filter; // for the daemon
};

// "-e set,save" is "-e set -e save".
void add_events(const std::string &list, std::vector<std::string> &filter)
{
    std::size_t start = 0;
    for (std::size_t end = 0; end != std::string::npos; start = end + 1) {
        end = list.find(',', start);
        const std::string event = list.substr(start, end == std::string::npos ? end : end - start);
        if (event.empty())
            throw UsageError("-e needs the names of events");
        filter.insert(filter.end(), {"-e", event});
    }
}

WatchOptions read_words(const Options &options, const Words &words)
{
    WatchOptions watch;
    watch.json = options.json;
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (words[i] == "--json")
            watch.json = true;
        else if (words[i] == "-t")
            watch.times = true;
        else if (words[i] == "-e")
            add_events(++i < words.size() ? words[i] : "", watch.filter);
        else if (words[i].starts_with('-'))
            throw UsageError("watch knows -e, -t and --json, not '" + words[i] + "'");
        else
            watch.filter.push_back(words[i]);
    }
    return watch;
}

std::string clock_text(std::time_t seconds)
{
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local)};
}

// "2026-11-23T15:29:02.034Z" in local time; as it is when it is none.
std::string local_time(const std::string &utc)
{
    std::tm parts{};
    const char *const rest = strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (!rest || *rest != '.')
        return utc;
    return clock_text(timegm(&parts)) + std::string(rest).substr(0, 4);
}

// Where a stream begins, or how far we are in it.
struct Place {
    std::string daemon;
    std::int64_t entry = 0;
    std::uint64_t id = 0;
    std::string time;
};

Place start_of(const std::string &json)
{
    const nlohmann::json event = nlohmann::json::parse(json);
    const std::string payload = event.at("payload").get<std::string>();
    const std::size_t blank = payload.find(" entry=");
    Place place{payload.substr(0, blank), 0, event.at("id").get<std::uint64_t>(),
                event.at("time").get<std::string>()};
    if (blank != std::string::npos)
        place.entry = std::strtoll(payload.c_str() + blank + 7, nullptr, 10);
    return place;
}

class Watch {
  public:
    Watch(const Options &options, WatchOptions watch)
        : options_(options), watch_(std::move(watch)), limit_(options.limits("watch").connect)
    {
    }

    int run()
    {
        stream_.emplace(open());
        place_ = start_of(stream_->start());
        for (;;) {
            try {
                if (!follow())
                    return 0;
            } catch (const EventsRefused &) {
                throw;
            } catch (const WireError &error) {
                lost_at_ = clock_text(std::time(nullptr));
                std::fprintf(stderr, "qvc: %s; trying again\n", for_errors(error.what()).c_str());
                if (!come_back())
                    return 0;
            }
        }
    }

  private:
    EventStream open() const { return {options_.endpoint, options_.session, watch_.filter, limit_}; }

    // False when the user has had enough; throws at the end of the stream.
    bool follow()
    {
        while (interrupt_.wait(stream_->fd(), -1) != SignalInput::Came::signal) {
            while (const auto json = stream_->next(std::chrono::milliseconds(0)))
                print(*json);
            std::fflush(stdout);
        }
        return false;
    }

    bool come_back()
    {
        constexpr int kFirstPause = 200; // milliseconds
        constexpr int kLongestPause = 5000;
        stream_.reset();
        for (int pause = kFirstPause;; pause = std::min(2 * pause, kLongestPause)) {
            if (interrupt_.wait(-1, pause) == SignalInput::Came::signal)
                return false;
            try {
                stream_.emplace(open());
                break;
            } catch (const EventsRefused &) {
                throw;
            } catch (const WireError &) { // not yet
            }
        }
        const Place now = start_of(stream_->start());
        tell_what_was_missed(now);
        place_ = now;
        return true;
    }

    void tell_what_was_missed(const Place &now) const
    {
        std::string what = now.daemon == place_.daemon
                               ? "at most " + std::to_string(now.id - place_.id) + " events"
                               : "the daemon was restarted";
        if (now.entry > place_.entry)
            what += ", entries " + std::to_string(place_.entry + 1) + " to " + std::to_string(now.entry) +
                    " of the history";
        std::fprintf(stderr, "qvc: listening again; missed is what happened from %s to %s: %s\n",
                     lost_at_.c_str(), clock_text(std::time(nullptr)).c_str(), what.c_str());
        if (!watch_.json)
            return;
        const nlohmann::json missed = {{"identity", "qvc"}, {"class", "event"},      {"event", "missed"},
                                       {"payload", what},   {"topic", "qvc missed"}, {"time", now.time}};
        print_line(missed.dump());
        std::fflush(stdout);
    }

    void print(const std::string &json)
    {
        try {
            const nlohmann::json event = nlohmann::json::parse(json);
            place_.id = event.at("id").get<std::uint64_t>();
            const std::string time = event.at("time").get<std::string>();
            const std::string when = watch_.times && !watch_.json ? local_time(time) + " " : "";
            print_line(watch_.json ? json : when + event_text(json));
        } catch (const nlohmann::json::exception &) {
            std::fprintf(stderr, "qvc: not an event: %s\n", url_escape(json).c_str());
        }
    }

    const Options &options_;
    const WatchOptions watch_;
    const std::chrono::milliseconds limit_;
    SignalInput interrupt_{SIGINT};
    std::optional<EventStream> stream_;
    Place place_;
    std::string lost_at_;
};

} // namespace

std::string event_text(const std::string &json)
{
    const nlohmann::json event = nlohmann::json::parse(json);
    std::string text;
    for (const char c : event.at("event").get<std::string>() + " " + event.at("payload").get<std::string>()) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f)
            text += url_escape({&c, 1});
        else
            text += c;
    }
    return text;
}

int run_watch(const Options &options, const Words &words)
{
    return Watch(options, read_words(options, words)).run();
}

} // namespace qvcd::client

#include "web/event_hub.h"

#include "platform/log.h"
#include "web/event_text.h"
#include "web/message.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <vector>

namespace qvcd::web {

namespace asio = boost::asio;
using Text = std::shared_ptr<const std::string>;

namespace {

constexpr std::chrono::seconds kTryAgain{1};
constexpr std::chrono::seconds kBeat{15}; // so that a dead connection is noticed
constexpr std::chrono::seconds kKept{60}; // without a listener, for who comes again

Text text_of(std::string text)
{
    return std::make_shared<const std::string>(std::move(text));
}

} // namespace

// The connection of one session. All but the construction happens on the thread of the loop.
class Subscription : public std::enable_shared_from_this<Subscription> {
  public:
    Subscription(EventHub &hub, Who who, std::unique_ptr<client::EventStream> stream)
        : hub_(hub), who_(std::move(who)), stream_(std::move(stream)), ring_(stream_->start()),
          descriptor_(hub.loop_), again_(hub.loop_), beat_(hub.loop_)
    {
    }

    ~Subscription() { close(); }
    Subscription(const Subscription &) = delete;
    Subscription &operator=(const Subscription &) = delete;

    void start()
    {
        if (ended_) // whoever logged in has logged out meanwhile
            return;
        watch();
        beat();
    }

    void listen(const std::string &key, const std::string &last, const std::shared_ptr<Listener> &listener)
    {
        for (Text &text : ring_.since(last))
            listener->send(std::move(text));
        if (!stream_)
            listener->send(text_of(named_event("lost")));
        listeners_.push_back({key, listener});
    }

    void end(const std::string &key)
    {
        std::erase_if(listeners_, [&](const Entry &entry) {
            const auto alive = entry.key == key ? entry.listener.lock() : nullptr;
            if (alive)
                alive->end();
            return entry.key == key;
        });
    }

    void end()
    {
        ended_ = true;
        again_.cancel();
        beat_.cancel();
        close();
        for (const auto &listener : living())
            listener->end();
        listeners_.clear();
    }

  private:
    struct Entry {
        std::string key;
        std::weak_ptr<Listener> listener;
    };

    std::vector<std::shared_ptr<Listener>> living()
    {
        std::vector<std::shared_ptr<Listener>> all;
        std::erase_if(listeners_, [&](const Entry &entry) {
            const auto alive = entry.listener.lock();
            if (alive)
                all.push_back(alive);
            return !alive;
        });
        return all;
    }

    void tell(const Text &text)
    {
        for (const auto &listener : living())
            listener->send(text);
    }

    void close()
    {
        if (descriptor_.is_open())
            descriptor_.release(); // the stream closes it
        stream_.reset();
    }

    // What has come may be more than what was waited for.
    void watch()
    {
        descriptor_.assign(stream_->fd());
        wait();
    }

    void wait()
    {
        descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                               [self = shared_from_this()](const boost::system::error_code &error) {
                                   if (!error && !self->ended_)
                                       self->take();
                               });
    }

    void take()
    {
        try {
            while (auto event = stream_->next(std::chrono::milliseconds(0))) {
                if (Text text = ring_.add(*event))
                    tell(text);
            }
            wait();
        } catch (const client::EventsRefused &) { // who comes again learns whether he may
            finish();
        } catch (const client::WireError &error) {
            qv_log_print(kLogInfo, "events: %s\n", error.what());
            close();
            tell(text_of(named_event("lost")));
            try_later();
        }
    }

    void finish()
    {
        const auto self = shared_from_this();
        hub_.drop(who_.session);
        end();
    }

    void try_later()
    {
        again_.expires_after(kTryAgain);
        again_.async_wait([self = shared_from_this()](const boost::system::error_code &error) {
            if (!error && !self->ended_)
                self->try_again();
        });
    }

    void try_again()
    {
        const bool is_added = hub_.pool_.add([self = shared_from_this()] {
            std::shared_ptr<client::EventStream> stream;
            bool is_refused = false;
            try {
                stream = self->hub_.daemon_.events(self->who_);
            } catch (const client::EventsRefused &) {
                is_refused = true;
            } catch (const std::exception &) { // still away
                stream.reset();
            }
            asio::post(self->hub_.loop_, [self, stream = std::move(stream), is_refused]() mutable {
                self->come_back(std::move(stream), is_refused);
            });
        });
        if (!is_added)
            try_later();
    }

    void come_back(std::shared_ptr<client::EventStream> stream, bool is_refused)
    {
        if (ended_)
            return;
        if (!stream && !is_refused)
            return try_later();
        tell(text_of(named_event("back")));
        if (is_refused)
            return finish();
        stream_ = std::move(stream);
        ring_ = EventRing(stream_->start());
        tell(text_of(ring_.reset()));
        watch();
    }

    // Keeps connections through gateways alive, and ends what nobody listens to.
    void beat()
    {
        beat_.expires_after(kBeat);
        beat_.async_wait([self = shared_from_this()](const boost::system::error_code &error) {
            if (error || self->ended_)
                return;
            self->tell(text_of(":\n\n"));
            self->idle_ = self->living().empty() ? self->idle_ + kBeat : std::chrono::seconds(0);
            if (self->idle_ >= kKept)
                return self->finish();
            self->beat();
        });
    }

    EventHub &hub_;
    const Who who_;
    std::shared_ptr<client::EventStream> stream_; // null: the daemon is away
    EventRing ring_;
    asio::posix::stream_descriptor descriptor_;
    asio::steady_timer again_;
    asio::steady_timer beat_;
    std::vector<Entry> listeners_;
    std::chrono::seconds idle_{0};
    bool ended_ = false;
};

EventHub::EventHub(asio::io_context &loop, Pool &pool, const Daemon &daemon)
    : loop_(loop), pool_(pool), daemon_(daemon)
{
}

EventHub::~EventHub() = default;

std::shared_ptr<Subscription> EventHub::find(int session)
{
    const std::lock_guard lock(mutex_);
    const auto found = subscriptions_.find(session);
    return found == subscriptions_.end() ? nullptr : found->second;
}

void EventHub::drop(int session)
{
    const std::lock_guard lock(mutex_);
    subscriptions_.erase(session);
}

void EventHub::open(const Who &who)
{
    if (find(who.session))
        return;
    std::shared_ptr<Subscription> made;
    try {
        made = std::make_shared<Subscription>(*this, who, daemon_.events(who));
    } catch (const client::EventsRefused &error) {
        if (!daemon_.knows(who))
            throw Problem{401, "the session has ended"};
        throw Problem{.status = 503, .detail = "the daemon tells of no more events", .retry_after = 5};
    } catch (const client::WireError &) {
        throw Problem{.status = 503, .detail = "the configuration daemon is away", .retry_after = 1};
    }
    const std::lock_guard lock(mutex_);
    if (subscriptions_.emplace(who.session, made).second) // else another was quicker
        asio::post(loop_, [made] { made->start(); });
}

bool EventHub::listen(const Who &who, const std::string &key, const std::string &last,
                      const std::shared_ptr<Listener> &listener)
{
    const auto subscription = find(who.session);
    if (subscription)
        subscription->listen(key, last, listener);
    return subscription != nullptr;
}

void EventHub::end(const Who &who, const std::string &key, bool is_last)
{
    asio::post(loop_, [this, session = who.session, key, is_last] {
        const auto subscription = find(session);
        if (!subscription)
            return;
        if (!is_last)
            return subscription->end(key);
        drop(session);
        subscription->end();
    });
}

void EventHub::stop()
{
    std::map<int, std::shared_ptr<Subscription>> all;
    {
        const std::lock_guard lock(mutex_);
        all.swap(subscriptions_);
    }
    for (const auto &[session, subscription] : all)
        subscription->end();
}

} // namespace qvcd::web

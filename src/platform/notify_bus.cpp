#include "platform/notify_bus.h"

#include "platform/event_queue.h"
#include "platform/log.h"
#include "platform/mqtt.h"
#include "platform/socket.h"
#include "platform/subscribers.h"
#include "platform/sysroot.h"
#include "platform/thread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace qvcd {

namespace {

constexpr char kEndpoint[] = "notify";
constexpr int kAcceptPauseMs = 200;                        // while no descriptors are left
constexpr std::size_t kInboxBytes = std::size_t{16} << 20; // of events that were not distributed yet
constexpr std::size_t kKeptEvents = 1024;                  // room for more is given back

// A payload is what a client sent, not always UTF-8.
std::string quoted(const std::string &text)
{
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Not by an object of the library's: to destroy one takes memory, which there may be none of.
std::string json_line(const Notification &n)
{
    return "{\"identity\":" + quoted(n.identity) + ",\"class\":" + quoted(n.message_class) +
           ",\"event\":" + quoted(n.event) + ",\"payload\":" + quoted(n.payload) +
           ",\"topic\":" + quoted(n.topic) + "}\n";
}

std::string utc_text(std::int64_t milliseconds)
{
    const std::time_t seconds = milliseconds / 1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 64> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    const std::string thousandths = std::to_string(1000 + milliseconds % 1000).substr(1);
    return std::string(text.data(), size) + "." + thousandths + "Z";
}

std::size_t size_of(const Notification &n)
{
    return sizeof n + (n.old ? n.old->size() : 0) + n.payload.size() + n.public_payload.size() +
           n.event.size() + n.topic.size();
}

/// The bus. Publishers only append to `inbox_` and wake the thread, which never blocks in a send. It accepts
/// before it distributes, so who was connected when an event was published gets it.
class Bus {
  public:
    Bus(UnixListener listener, Fd wake, std::shared_ptr<MqttClient> mqtt)
        : listener_(std::move(listener)), wake_(std::move(wake)), mqtt_(std::move(mqtt)),
          has_broker_(mqtt_ != nullptr), thread_(start_quiet_thread([this] { run(); }))
    {
    }
    ~Bus() { stop(); }
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    bool has_listeners() const;
    void publish(Notification notification);
    std::optional<std::uint64_t> listen(const std::shared_ptr<EventQueue> &queue);
    std::shared_ptr<MqttClient> broker() const { return mqtt_; }
    void stop();

  private:
    void run();
    bool turn();
    void lose_events(const char *why);
    void wait();
    void accept_all();
    void take_inbox(bool &last, bool &overflow);
    void distribute();
    void to_queues(const Notification &event);
    std::vector<std::shared_ptr<EventQueue>> queues();

    UnixListener listener_;
    Fd wake_; // eventfd(2)
    std::shared_ptr<MqttClient> mqtt_;
    const bool has_broker_; // for publishers, whom stop() may overtake

    std::mutex mutex_; // guards what follows
    std::vector<Notification> inbox_;
    std::size_t inbox_bytes_ = 0;
    bool overflow_ = false; // an event found no room
    bool stopping_ = false;
    std::uint64_t last_id_ = 0;
    std::vector<std::weak_ptr<EventQueue>> queues_;

    std::atomic<bool> has_queues_{false};
    std::atomic<bool> has_subscribers_{false}; // or may have in a moment

    Subscribers subscribers_; // the thread's own, like what follows
    std::vector<Notification> events_;
    std::vector<std::shared_ptr<EventQueue>> listening_; // while events are distributed
    std::vector<pollfd> waits_;
    bool in_trouble_ = false; // accept failed and was logged
    LogPause losses_;

    std::thread thread_; // last: uses everything above
};

void Bus::stop()
{
    if (!thread_.joinable())
        return;
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    ::eventfd_write(wake_.get(), 1);
    thread_.join();
    remove_unix_socket(listener_);
    mqtt_.reset();
}

// Who has connected, and was not taken in yet, listens too. That is looked at first: who is taken in between
// the two is known as a subscriber by then.
bool Bus::has_listeners() const
{
    if (has_broker_ || has_subscribers_ || has_queues_)
        return true;
    pollfd entry{listener_.socket.get(), POLLIN, 0};
    return ::poll(&entry, 1, 0) > 0 || has_subscribers_;
}

void Bus::publish(Notification notification)
{
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    notification.at = std::chrono::duration_cast<milliseconds>(now).count();
    bool was_empty = false;
    {
        const std::lock_guard lock(mutex_);
        notification.id = ++last_id_;
        was_empty = inbox_.empty();
        inbox_bytes_ += size_of(notification);
        overflow_ = overflow_ || inbox_bytes_ > kInboxBytes;
        if (!overflow_)
            inbox_.push_back(std::move(notification));
    }
    if (was_empty)
        ::eventfd_write(wake_.get(), 1);
}

void Bus::run()
{
    for (bool last = false; !last;) {
        try {
            last = turn();
        } catch (const std::bad_alloc &) {
            ::eventfd_write(wake_.get(), 1); // this turn may have been the last one
            lose_events("there is no memory");
        }
    }
}

// Who misses an event must know it: he comes again.
void Bus::lose_events(const char *why)
{
    subscribers_.drop_all();
    {
        const std::lock_guard lock(mutex_);
        for (const std::weak_ptr<EventQueue> &queue : queues_) {
            if (const std::shared_ptr<EventQueue> one = queue.lock())
                one->lose();
        }
    }
    if (losses_.over())
        qv_log_print(kLogError, "notify: events are lost and all subscribers dropped: %s\n", why);
}

// Distributes what was published meanwhile; true when the bus stops.
bool Bus::turn()
{
    wait();
    bool last = false;
    bool overflow = false;
    take_inbox(last, overflow);
    accept_all();
    distribute();
    subscribers_.send();
    if (overflow)
        lose_events("more came than could be sent");
    has_subscribers_ = !subscribers_.empty();
    return last;
}

// When the bus stops, what came before is among the events.
void Bus::take_inbox(bool &last, bool &overflow)
{
    events_.clear();
    if (events_.capacity() > kKeptEvents)
        events_.shrink_to_fit();
    const std::lock_guard lock(mutex_);
    events_.swap(inbox_);
    inbox_bytes_ = 0;
    last = stopping_;
    overflow = std::exchange(overflow_, false);
}

void Bus::wait()
{
    waits_.clear();
    waits_.push_back({wake_.get(), POLLIN, 0});
    waits_.push_back({in_trouble_ ? -1 : listener_.socket.get(), POLLIN, 0});
    subscribers_.append_waits(waits_);
    if (::poll(waits_.data(), waits_.size(), in_trouble_ ? kAcceptPauseMs : -1) <= 0)
        return;
    if (waits_[0].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
    }
    subscribers_.notice(waits_.data() + 2);
}

void Bus::accept_all()
{
    has_subscribers_ = true; // before there is one: see has_listeners()
    for (;;) {
        Fd socket(::accept4(listener_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        const int error = errno;
        if (socket) {
            in_trouble_ = false;
            subscribers_.add(std::move(socket));
        } else if (error != EINTR && error != ECONNABORTED) {
            if (error != EAGAIN && !std::exchange(in_trouble_, true))
                qv_log_print(kLogError, "notify: cannot accept a subscriber: %s\n", std::strerror(error));
            in_trouble_ = in_trouble_ && error != EAGAIN;
            return;
        }
    }
}

// Those that are left; whoever has gone leaves his place.
std::vector<std::shared_ptr<EventQueue>> Bus::queues()
{
    std::vector<std::shared_ptr<EventQueue>> left;
    const std::lock_guard lock(mutex_);
    std::erase_if(queues_, [](const std::weak_ptr<EventQueue> &queue) { return queue.expired(); });
    for (const std::weak_ptr<EventQueue> &queue : queues_) {
        if (std::shared_ptr<EventQueue> one = queue.lock())
            left.push_back(std::move(one));
    }
    has_queues_ = !queues_.empty();
    return left;
}

std::optional<std::uint64_t> Bus::listen(const std::shared_ptr<EventQueue> &queue)
{
    const std::string &source = queue->filter().source;
    std::size_t of_source = 0;
    for (const std::shared_ptr<EventQueue> &other : queues())
        of_source += !source.empty() && other->filter().source == source ? 1 : 0;
    const std::lock_guard lock(mutex_);
    if (stopping_ || queues_.size() >= kMostListeners || of_source >= kMostListeners / 2)
        return std::nullopt;
    queue->begin_behind(last_id_);
    queues_.push_back(queue);
    has_queues_ = true;
    return last_id_;
}

void Bus::to_queues(const Notification &event)
{
    EventLines lines(event);
    for (const std::shared_ptr<EventQueue> &queue : listening_)
        queue->offer(lines);
}

void Bus::distribute()
{
    listening_ = queues();
    for (const Notification &event : events_) {
        if (!subscribers_.empty())
            subscribers_.queue(json_line(event));
        if (mqtt_)
            mqtt_->publish(event.event, event.public_payload);
        to_queues(event);
    }
    listening_.clear(); // who goes now is gone
}

// ---- The bus of the process ----

struct TheBus {
    std::mutex mutex;
    std::shared_ptr<Bus> bus;
};

TheBus &the_bus()
{
    static TheBus *const b = new TheBus; // never destroyed: threads that are left behind may still publish
    return *b;
}

std::shared_ptr<Bus> current_bus()
{
    TheBus &the = the_bus();
    const std::lock_guard lock(the.mutex);
    return the.bus;
}

std::shared_ptr<MqttClient> start_mqtt()
{
    std::ifstream file(qv_sysroot_path(kMqttConfigFile), std::ios::binary);
    if (!file)
        return nullptr;
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::optional<MqttConfig> config = parse_mqtt_config(text);
    struct stat st {};
    constexpr mode_t kOthers = 077;
    if (config && !config->password.empty() && ::stat(qv_sysroot_path(kMqttConfigFile).c_str(), &st) == 0 &&
        (st.st_mode & kOthers) != 0)
        qv_log_print(kLogWarning, "%s holds a password, and others may read it\n", kMqttConfigFile);
    return config ? MqttClient::start(std::move(*config)) : nullptr;
}

} // namespace

std::string stream_line(const Notification &n, bool sees_sessions)
{
    const std::string &payload = sees_sessions ? n.payload : n.public_payload;
    std::string line = "{\"identity\":" + quoted(n.identity) + ",\"class\":" + quoted(n.message_class) +
                       ",\"event\":" + quoted(n.event) + ",\"payload\":" + quoted(payload) +
                       ",\"topic\":" + quoted(n.topic) + ",\"id\":" + std::to_string(n.id) + ",\"time\":\"" +
                       utc_text(n.at) + "\"";
    if (n.old)
        line += ",\"old\":" + quoted(*n.old);
    return line + "}\n";
}

int qvnotify_start()
{
    qvnotify_stop();
    std::optional<UnixListener> listener = listen_unix(kEndpoint);
    if (!listener)
        return -1;
    ::fcntl(listener->socket.get(), F_SETFL, O_NONBLOCK);
    try {
        Fd wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!wake)
            throw std::system_error(errno, std::generic_category(), "eventfd");
        auto bus = std::make_shared<Bus>(std::move(*listener), std::move(wake), start_mqtt());
        TheBus &the = the_bus();
        const std::lock_guard lock(the.mutex);
        the.bus = std::move(bus);
        return 0;
    } catch (const std::system_error &error) {
        qv_report_failure(std::string("cannot start the notification bus: ") + error.what());
        return -1;
    }
}

std::optional<std::uint64_t> qvnotify_listen(const std::shared_ptr<EventQueue> &queue)
{
    const std::shared_ptr<Bus> bus = current_bus();
    return bus ? bus->listen(queue) : std::nullopt;
}

std::shared_ptr<MqttClient> qvnotify_broker()
{
    const std::shared_ptr<Bus> bus = current_bus();
    return bus ? bus->broker() : nullptr;
}

bool qvnotify_has_listeners()
{
    const std::shared_ptr<Bus> bus = current_bus();
    return bus && bus->has_listeners();
}

void qvnotify_send_publish_message(Notification notification)
{
    const std::shared_ptr<Bus> bus = current_bus();
    if (bus && bus->has_listeners())
        bus->publish(std::move(notification));
}

void qvnotify_stop()
{
    std::shared_ptr<Bus> bus;
    TheBus &the = the_bus();
    {
        const std::lock_guard lock(the.mutex);
        bus.swap(the.bus);
    }
    if (bus)
        bus->stop(); // a publisher may hold it for a moment longer, and must not be the one who waits
}

} // namespace qvcd

#include "platform/notify_bus.h"

#include "platform/log.h"
#include "platform/mqtt.h"
#include "platform/socket.h"
#include "platform/sysroot.h"
#include "platform/thread.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
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
#include <system_error>
#include <vector>

namespace qvcd {

namespace {

constexpr char kEndpoint[] = "notify";
constexpr std::size_t kSubscriberLimit = 64;
constexpr std::size_t kQueueBytes = 1 << 20; // of one subscriber; one that lets more pile up is dropped
constexpr int kAcceptPauseMs = 200;          // while no descriptors are left

struct Subscriber {
    Fd socket;
    std::string queue;   // lines not sent yet
    bool silent = false; // it has closed its sending side
    bool gone = false;
};

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

/// The bus. Publishers only append to `inbox_` and wake the thread, which never blocks in a send. It accepts
/// before it distributes, so who was connected when an event was published gets it.
class Bus {
  public:
    Bus(UnixListener listener, Fd wake, std::unique_ptr<MqttClient> mqtt)
        : listener_(std::move(listener)), wake_(std::move(wake)), mqtt_(std::move(mqtt)),
          thread_(start_quiet_thread([this] { run(); }))
    {
    }
    ~Bus() { stop(); }
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    void publish(Notification notification);
    void stop();

  private:
    void run();
    bool turn();
    void lose_events();
    void wait();
    void accept_all();
    bool take_inbox(std::vector<Notification> &events);
    void distribute(const std::vector<Notification> &events);
    void enqueue(Subscriber &subscriber, const std::string &line);
    void send_queue(Subscriber &subscriber);
    void notice(Subscriber &subscriber, short events);
    void drop(Subscriber &subscriber, const char *reason);

    UnixListener listener_;
    Fd wake_; // eventfd(2)
    std::unique_ptr<MqttClient> mqtt_;

    std::mutex mutex_; // guards what follows
    std::vector<Notification> inbox_;
    bool stopping_ = false;

    std::vector<Subscriber> subscribers_; // the thread's own, like what follows
    std::vector<Notification> events_;
    std::vector<pollfd> waits_;
    bool in_trouble_ = false; // accept failed and was logged

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

void Bus::publish(Notification notification)
{
    bool was_empty = false;
    {
        const std::lock_guard lock(mutex_);
        was_empty = inbox_.empty();
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
            lose_events();
        }
    }
}

// Who misses an event must know it: he comes again.
void Bus::lose_events()
{
    ::eventfd_write(wake_.get(), 1); // the turn that failed may have been the last one
    subscribers_.clear();
    qv_log_print(kLogError, "notify: events are lost and all subscribers dropped: there is no memory\n");
}

// Distributes what was published meanwhile; true when the bus stops.
bool Bus::turn()
{
    wait();
    const bool last = take_inbox(events_);
    accept_all();
    distribute(events_);
    for (Subscriber &subscriber : subscribers_)
        send_queue(subscriber);
    std::erase_if(subscribers_, [](const Subscriber &s) { return s.gone; });
    return last;
}

// True when the bus stops; what came before is among the events.
bool Bus::take_inbox(std::vector<Notification> &events)
{
    events.clear();
    const std::lock_guard lock(mutex_);
    events.swap(inbox_);
    return stopping_;
}

void Bus::wait()
{
    waits_.clear();
    waits_.push_back({wake_.get(), POLLIN, 0});
    waits_.push_back({in_trouble_ ? -1 : listener_.socket.get(), POLLIN, 0});
    for (const Subscriber &s : subscribers_)
        waits_.push_back({s.socket.get(),
                          static_cast<short>((s.silent ? 0 : POLLIN) | (s.queue.empty() ? 0 : POLLOUT)), 0});
    if (::poll(waits_.data(), waits_.size(), in_trouble_ ? kAcceptPauseMs : -1) <= 0)
        return;
    if (waits_[0].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
    }
    for (std::size_t i = 0; i < subscribers_.size(); ++i)
        notice(subscribers_[i], waits_[i + 2].revents);
}

// Subscribers have nothing to say; reading shows that one has closed.
void Bus::notice(Subscriber &subscriber, short events)
{
    if (events & POLLIN) {
        char waste[1024];
        if (::recv(subscriber.socket.get(), waste, sizeof waste, MSG_DONTWAIT) == 0)
            subscriber.silent = true;
    }
    if (events & (POLLHUP | POLLERR))
        subscriber.gone = true;
}

void Bus::accept_all()
{
    for (;;) {
        Fd socket(::accept4(listener_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        const int error = errno;
        if (socket && subscribers_.size() >= kSubscriberLimit) {
            qv_log_print(kLogWarning, "notify: a subscriber is refused, there are %zu\n",
                         subscribers_.size());
        } else if (socket) {
            in_trouble_ = false;
            subscribers_.push_back({std::move(socket), {}});
        } else if (error != EINTR && error != ECONNABORTED) {
            if (error != EAGAIN && !std::exchange(in_trouble_, true))
                qv_log_print(kLogError, "notify: cannot accept a subscriber: %s\n", std::strerror(error));
            in_trouble_ = in_trouble_ && error != EAGAIN;
            return;
        }
    }
}

void Bus::distribute(const std::vector<Notification> &events)
{
    for (const Notification &event : events) {
        if (!subscribers_.empty()) {
            const std::string line = json_line(event);
            for (Subscriber &subscriber : subscribers_)
                enqueue(subscriber, line);
        }
        if (mqtt_)
            mqtt_->publish(event.event, event.public_payload);
    }
}

void Bus::enqueue(Subscriber &subscriber, const std::string &line)
{
    if (subscriber.gone)
        return;
    if (subscriber.queue.size() + line.size() > kQueueBytes)
        send_queue(subscriber); // it may have read meanwhile
    if (subscriber.queue.size() + line.size() > kQueueBytes)
        drop(subscriber, "it does not read");
    else
        subscriber.queue += line;
}

void Bus::send_queue(Subscriber &subscriber)
{
    std::size_t sent = 0;
    while (!subscriber.gone && sent < subscriber.queue.size()) {
        const ssize_t n = ::send(subscriber.socket.get(), subscriber.queue.data() + sent,
                                 subscriber.queue.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0)
            sent += static_cast<std::size_t>(n);
        else if (errno == EAGAIN)
            break;
        else if (errno != EINTR)
            subscriber.gone = true;
    }
    subscriber.queue.erase(0, sent);
}

void Bus::drop(Subscriber &subscriber, const char *reason)
{
    qv_log_print(kLogWarning, "notify: a subscriber is dropped, %s\n", reason);
    subscriber.gone = true;
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

std::unique_ptr<MqttClient> start_mqtt()
{
    std::ifstream file(qv_sysroot_path(kMqttConfigFile), std::ios::binary);
    if (!file)
        return nullptr;
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::optional<MqttConfig> config = parse_mqtt_config(text);
    return config ? MqttClient::start(std::move(*config)) : nullptr;
}

} // namespace

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

void qvnotify_send_publish_message(Notification notification)
{
    std::shared_ptr<Bus> bus;
    {
        TheBus &the = the_bus();
        const std::lock_guard lock(the.mutex);
        bus = the.bus;
    }
    if (bus)
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

#include "platform/mqtt_module.h"

#include "platform/fd.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mosquitto.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace qvcd {

namespace {

using namespace std::chrono_literals;

constexpr int kQos = 1;
constexpr int kKeepAliveSeconds = 60;
constexpr int kUnacknowledgedLimit = 20; // the library sends no more at once
constexpr auto kAnswerPatience = 10s;    // for the broker's answer to CONNECT
constexpr auto kRetryFirst = 1s;
constexpr auto kRetryLongest = 30s;
constexpr auto kStopPatience = 1s;
constexpr auto kTick = 1s; // how often the library looks after its keep-alive

struct MosquittoFree {
    void operator()(mosquitto *client) const noexcept { ::mosquitto_destroy(client); }
};

struct Message {
    std::string event;
    std::string payload;
};

// Only the thread calls the library; publish() fills the queue and wakes it.
struct State {
    State(MqttConfig c, decltype(&qv_log_print) l) : config(std::move(c)), log(l) {}

    const MqttConfig config;
    decltype(&qv_log_print) const log;
    std::unique_ptr<mosquitto, MosquittoFree> client;
    Fd wake; // eventfd(2)

    std::mutex mutex; // guards what follows
    std::condition_variable changed;
    std::deque<Message> queue;
    std::uint64_t lost = 0; // events since the queue became full
    bool stopping = false;
    bool ended = false;
    Deadline stop_deadline;

    // The thread's own.
    bool connected = false; // the broker has accepted us
    bool served = false;    // it did at some time of this connection
    bool refused = false;
    bool up_logged = false; // what the log says last; neither at first
    bool down_logged = false;
    int unacknowledged = 0;

    bool prepare();
    void run();
    bool is_stopping();
    bool has_time();
    bool work_left();
    void note_down(const char *reason);
    void note_up();
    int open_connection();
    void converse();
    bool wait_for_traffic();
    void hand_over();
    void publish_one(const Message &message);
    bool pause(std::chrono::milliseconds time);

    static void on_connect(mosquitto *, void *self, int code);
    static void on_disconnect(mosquitto *, void *self, int code);
    static void on_publish(mosquitto *, void *self, int id);
};

bool State::prepare()
{
    static const int library = ::mosquitto_lib_init();
    wake.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    client.reset(::mosquitto_new(nullptr, true, this));
    if (library != MOSQ_ERR_SUCCESS || !client || !wake) {
        log(kLogError, "notify: cannot make an MQTT client: %s\n", std::strerror(errno));
        return false;
    }
    ::mosquitto_connect_callback_set(client.get(), &on_connect);
    ::mosquitto_disconnect_callback_set(client.get(), &on_disconnect);
    ::mosquitto_publish_callback_set(client.get(), &on_publish);
    int rc = MOSQ_ERR_SUCCESS;
    if (!config.user.empty())
        rc = ::mosquitto_username_pw_set(client.get(), config.user.c_str(),
                                         config.password.empty() ? nullptr : config.password.c_str());
    if (rc == MOSQ_ERR_SUCCESS && !config.cafile.empty())
        rc = ::mosquitto_tls_set(client.get(), config.cafile.c_str(), nullptr, nullptr, nullptr, nullptr);
    if (rc != MOSQ_ERR_SUCCESS)
        log(kLogError, "notify: no events to the broker, user or cafile cannot be used: %s\n",
            ::mosquitto_strerror(rc));
    return rc == MOSQ_ERR_SUCCESS;
}

bool State::is_stopping()
{
    const std::lock_guard lock(mutex);
    return stopping;
}

// False when the second that stopping grants is over.
bool State::has_time()
{
    const std::lock_guard lock(mutex);
    return !stopping || std::chrono::steady_clock::now() < stop_deadline;
}

bool State::work_left()
{
    const std::lock_guard lock(mutex);
    return !queue.empty() || unacknowledged > 0;
}

void State::note_down(const char *reason)
{
    if (!down_logged && !is_stopping())
        log(kLogWarning, "notify: broker %s port %d is away: %s\n", config.host.c_str(), config.port, reason);
    down_logged = true;
}

void State::note_up()
{
    if (down_logged || !up_logged)
        log(kLogNotice, "notify: broker %s port %d is %s\n", config.host.c_str(), config.port,
            up_logged ? "back" : "there");
    down_logged = false;
    up_logged = true;
}

void State::on_connect(mosquitto *, void *self, int code)
{
    auto *s = static_cast<State *>(self);
    s->connected = s->served = code == 0;
    s->refused = code != 0;
    if (s->connected)
        s->note_up();
    else
        s->note_down(::mosquitto_connack_string(code));
}

void State::on_disconnect(mosquitto *, void *self, int code)
{
    auto *s = static_cast<State *>(self);
    s->connected = false;
    if (code != 0)
        s->note_down(::mosquitto_strerror(code));
}

void State::on_publish(mosquitto *, void *self, int)
{
    auto *s = static_cast<State *>(self);
    s->unacknowledged = std::max(s->unacknowledged - 1, 0);
}

// Looks the broker up and connects; both may block for long, which only this thread feels.
int State::open_connection()
{
    refused = served = false;
    errno = 0;
    const int rc = ::mosquitto_connect(client.get(), config.host.c_str(), config.port, kKeepAliveSeconds);
    if (rc != MOSQ_ERR_SUCCESS)
        note_down(rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : ::mosquitto_strerror(rc));
    return rc;
}

// One connection, from the broker's answer to its loss or our stop.
void State::converse()
{
    const Deadline answer = deadline_in(kAnswerPatience);
    while (has_time()) {
        if (is_stopping() && !work_left())
            break;
        if (!connected && (refused || std::chrono::steady_clock::now() >= answer)) {
            note_down("it does not answer");
            break;
        }
        if (connected)
            hand_over();
        if (!wait_for_traffic())
            break;
    }
    connected = false;
    ::mosquitto_disconnect(client.get());
    ::mosquitto_loop_write(client.get(), 1);
}

// False when the connection is lost.
bool State::wait_for_traffic()
{
    const int socket = ::mosquitto_socket(client.get());
    if (socket < 0)
        return false;
    const bool writing = ::mosquitto_want_write(client.get());
    std::array<pollfd, 2> waits{
        {{socket, static_cast<short>(writing ? POLLIN | POLLOUT : POLLIN), 0}, {wake.get(), POLLIN, 0}}};
    const auto longest = is_stopping() ? 50ms : std::chrono::milliseconds(kTick);
    if (::poll(waits.data(), waits.size(), static_cast<int>(longest.count())) < 0 && errno != EINTR)
        return false;
    if (waits[1].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(wake.get(), &count);
    }
    int rc = MOSQ_ERR_SUCCESS;
    if (waits[0].revents & (POLLIN | POLLHUP | POLLERR))
        rc = ::mosquitto_loop_read(client.get(), 1);
    if (rc == MOSQ_ERR_SUCCESS && (waits[0].revents & POLLOUT))
        rc = ::mosquitto_loop_write(client.get(), 1);
    if (rc == MOSQ_ERR_SUCCESS)
        rc = ::mosquitto_loop_misc(client.get());
    return rc == MOSQ_ERR_SUCCESS;
}

// Gives queued events to the library, as many as it sends without acknowledgement.
void State::hand_over()
{
    while (unacknowledged < kUnacknowledgedLimit) {
        Message message;
        std::uint64_t dropped = 0;
        {
            const std::lock_guard lock(mutex);
            if (queue.empty())
                return;
            message = std::move(queue.front());
            queue.pop_front();
            dropped = std::exchange(lost, 0);
        }
        if (dropped > 0)
            log(kLogWarning, "notify: %llu events did not reach the broker\n",
                static_cast<unsigned long long>(dropped));
        publish_one(message);
    }
}

void State::publish_one(const Message &message)
{
    std::array<char, 256> name{};
    const bool named = ::gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0';
    const std::string topic = config.prefix + "/" + (named ? name.data() : "localhost") + "/" + message.event;
    // A lost connection is no failure here: the library keeps the message and sends it after the next
    // connect.
    const int rc =
        ::mosquitto_publish(client.get(), nullptr, topic.c_str(), static_cast<int>(message.payload.size()),
                            message.payload.data(), kQos, false);
    if (rc == MOSQ_ERR_SUCCESS || rc == MOSQ_ERR_NO_CONN || rc == MOSQ_ERR_CONN_LOST)
        ++unacknowledged;
    else
        log(kLogWarning, "notify: cannot publish %s: %s\n", topic.c_str(), ::mosquitto_strerror(rc));
}

// False when the client stops.
bool State::pause(std::chrono::milliseconds time)
{
    std::unique_lock lock(mutex);
    return !changed.wait_for(lock, time, [this] { return stopping; });
}

void State::run()
{
    std::chrono::milliseconds delay = kRetryFirst;
    while (!is_stopping()) {
        if (open_connection() == MOSQ_ERR_SUCCESS) {
            converse();
            if (served)
                delay = kRetryFirst;
        }
        if (!pause(delay))
            break;
        delay = std::min<std::chrono::milliseconds>(2 * delay, kRetryLongest);
    }
    const std::lock_guard lock(mutex);
    ended = true;
    changed.notify_all();
}

class Client : public MqttClient {
  public:
    explicit Client(std::shared_ptr<State> state)
        : state_(std::move(state)), thread_(start_quiet_thread([s = state_] { s->run(); }))
    {
    }
    ~Client() override;

    void publish(std::string event, std::string payload) override;

  private:
    std::shared_ptr<State> state_; // the thread's too: one that hangs in a name lookup is left behind
    std::thread thread_;
};

Client::~Client()
{
    std::unique_lock lock(state_->mutex);
    state_->stopping = true;
    state_->stop_deadline = deadline_in(kStopPatience);
    state_->changed.notify_all();
    ::eventfd_write(state_->wake.get(), 1);
    const bool ended =
        state_->changed.wait_until(lock, state_->stop_deadline + 100ms, [this] { return state_->ended; });
    lock.unlock();
    if (ended)
        thread_.join();
    else
        thread_.detach();
}

void Client::publish(std::string event, std::string payload)
{
    bool was_empty = false;
    {
        const std::lock_guard lock(state_->mutex);
        if (state_->queue.size() >= kMqttQueueLimit) {
            if (state_->lost++ == 0)
                state_->log(kLogWarning, "notify: the broker's queue is full, further events are lost\n");
            return;
        }
        was_empty = state_->queue.empty();
        state_->queue.push_back({std::move(event), std::move(payload)});
    }
    if (was_empty)
        ::eventfd_write(state_->wake.get(), 1);
}

std::unique_ptr<MqttClient> start(MqttConfig config, decltype(&qv_log_print) log)
{
    auto state = std::make_shared<State>(std::move(config), log);
    return state->prepare() ? std::make_unique<Client>(std::move(state)) : nullptr;
}

} // namespace

QVCD_MODULE(MqttModule, start)

} // namespace qvcd

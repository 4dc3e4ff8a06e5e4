#include "platform/mqtt_module.h"

#include "platform/coarse_clock.h"
#include "platform/host_name.h"
#include "platform/mqtt_properties.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <mutex>
#include <unordered_map>

namespace qvcd {

namespace {

using namespace std::chrono_literals;

constexpr int kQos = 1;
constexpr int kKeepAliveSeconds = 60;
constexpr auto kRetryFirst = 1s;
constexpr auto kRetryLongest = 30s;
constexpr auto kStopPatience = 1s;

struct MosquittoFree {
    void operator()(mosquitto *client) const noexcept { ::mosquitto_destroy(client); }
};

// Properties of one packet, which may lack memory: then the packet is not sent.
class Properties {
  public:
    Properties() = default;
    ~Properties() { ::mosquitto_property_free_all(&list_); }
    Properties(const Properties &) = delete;
    Properties &operator=(const Properties &) = delete;

    void pair(const std::string &name, const std::string &value)
    {
        good_ &= ::mosquitto_property_add_string_pair(&list_, MQTT_PROP_USER_PROPERTY, name.c_str(),
                                                      value.c_str()) == MOSQ_ERR_SUCCESS;
    }
    void binary(int which, const std::string &value)
    {
        good_ &=
            ::mosquitto_property_add_binary(&list_, which, value.data(),
                                            static_cast<std::uint16_t>(value.size())) == MOSQ_ERR_SUCCESS;
    }
    void number(int which, std::size_t value)
    {
        good_ &= ::mosquitto_property_add_int32(&list_, which, static_cast<std::uint32_t>(value)) ==
                 MOSQ_ERR_SUCCESS;
    }
    bool good() const { return good_; }
    const mosquitto_property *get() const { return list_; }

  private:
    mosquitto_property *list_ = nullptr;
    bool good_ = true;
};

MqttRequest request_of(const mosquitto_message &message, const mosquitto_property *properties)
{
    MqttRequest request;
    request.payload.assign(static_cast<const char *>(message.payload),
                           static_cast<std::size_t>(message.payloadlen));
    char *text = nullptr;
    if (::mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &text, false))
        request.response_topic = taken_text(text);
    request.correlation = correlation_in(properties);
    request.properties = user_properties_in(properties);
    return request;
}

// The thread runs the library's loop, which reconnects and sends; what the others call only queues. The
// library calls back on the thread, without any lock of its own that they would wait for.
struct State {
    State(MqttConfig c, decltype(&qv_log_print) l) : config(std::move(c)), log(l) {}

    const MqttConfig config;
    decltype(&qv_log_print) const log;
    std::unique_ptr<mosquitto, MosquittoFree> client;

    std::mutex mutex; // guards what follows
    std::condition_variable changed;
    std::unordered_map<int, std::size_t> unacknowledged; // bytes of each message
    std::size_t unacknowledged_bytes = 0;
    std::uint64_t lost = 0; // messages since the queue became full
    bool joined = false;
    bool connected = false; // the broker has accepted us
    bool stopping = false;
    bool ended = false;
    std::function<void(MqttRequest)> request;
    std::string status, farewell;
    bool status_is_due = false; // there was no room for it

    // The thread's own.
    bool served = false;    // the broker accepted us since the last failure
    bool up_logged = false; // what the log says last; neither at first
    bool down_logged = false;
    LogPause refusals;

    bool prepare();
    int secure();
    void run();
    int open_connection();
    bool is_stopping();
    void note_down(const char *reason);
    void note_up();
    void set_will();
    void subscribe();
    void send_status();
    bool publish(const std::string &topic, const std::string &payload, const mosquitto_property *properties,
                 bool retain);
    bool publish_locked(const std::string &topic, const std::string &payload,
                        const mosquitto_property *properties, bool retain);
    bool has_room(std::size_t bytes, bool is_reply) const;
    void disconnect();
    bool pause(std::chrono::milliseconds time);

    static void on_connect(mosquitto *, void *self, int code, int flags, const mosquitto_property *);
    static void on_disconnect(mosquitto *, void *self, int code, const mosquitto_property *);
    static void on_publish(mosquitto *, void *self, int id, int code, const mosquitto_property *);
    static void on_subscribe(mosquitto *, void *self, int id, int count, const int *granted,
                             const mosquitto_property *);
    static void on_message(mosquitto *, void *self, const mosquitto_message *message,
                           const mosquitto_property *properties);
};

bool State::prepare()
{
    static const int library = ::mosquitto_lib_init();
    // With a name of its own an appliance takes its place from a connection of its that the broker still
    // holds.
    const std::string name = "qvcd-" + config.id;
    client.reset(::mosquitto_new(config.commands ? name.c_str() : nullptr, true, this));
    if (library != MOSQ_ERR_SUCCESS || !client) {
        log(kLogError, "notify: cannot make an MQTT client: %s\n", std::strerror(errno));
        return false;
    }
    ::mosquitto_threaded_set(client.get(), true);
    ::mosquitto_int_option(client.get(), MOSQ_OPT_PROTOCOL_VERSION,
                           config.commands ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    ::mosquitto_reconnect_delay_set(client.get(), std::chrono::seconds(kRetryFirst).count(),
                                    std::chrono::seconds(kRetryLongest).count(), true);
    ::mosquitto_connect_v5_callback_set(client.get(), &on_connect);
    ::mosquitto_disconnect_v5_callback_set(client.get(), &on_disconnect);
    ::mosquitto_publish_v5_callback_set(client.get(), &on_publish);
    ::mosquitto_subscribe_v5_callback_set(client.get(), &on_subscribe);
    ::mosquitto_message_v5_callback_set(client.get(), &on_message);
    const int rc = secure();
    if (rc != MOSQ_ERR_SUCCESS)
        log(kLogError, "notify: no events to the broker, user or cafile cannot be used: %s\n",
            ::mosquitto_strerror(rc));
    return rc == MOSQ_ERR_SUCCESS;
}

int State::secure()
{
    const auto or_none = [](const std::string &text) { return text.empty() ? nullptr : text.c_str(); };
    int rc = MOSQ_ERR_SUCCESS;
    if (!config.user.empty())
        rc = ::mosquitto_username_pw_set(client.get(), config.user.c_str(), or_none(config.password));
    if (rc == MOSQ_ERR_SUCCESS && !config.cafile.empty())
        rc = ::mosquitto_tls_set(client.get(), config.cafile.c_str(), nullptr, or_none(config.certfile),
                                 or_none(config.keyfile), nullptr);
    return rc;
}

bool State::is_stopping()
{
    const std::lock_guard lock(mutex);
    return stopping;
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

void State::on_connect(mosquitto *, void *self, int code, int, const mosquitto_property *)
{
    auto *s = static_cast<State *>(self);
    if (code != 0)
        return s->note_down(s->config.commands ? ::mosquitto_reason_string(code)
                                               : ::mosquitto_connack_string(code));
    s->served = true;
    s->note_up();
    if (s->config.commands)
        s->subscribe();
    const std::lock_guard lock(s->mutex);
    s->connected = true;
    s->send_status();
    if (s->stopping)
        s->disconnect();
    s->changed.notify_all();
}

void State::on_disconnect(mosquitto *, void *self, int code, const mosquitto_property *)
{
    auto *s = static_cast<State *>(self);
    {
        const std::lock_guard lock(s->mutex);
        s->connected = false;
        s->changed.notify_all();
    }
    if (code != 0)
        s->note_down(::mosquitto_strerror(code));
    s->set_will(); // of the next connection
}

void State::on_publish(mosquitto *, void *self, int id, int code, const mosquitto_property *)
{
    auto *s = static_cast<State *>(self);
    if (code >= MQTT_RC_UNSPECIFIED && s->refusals.over())
        s->log(kLogWarning, "notify: the broker refuses a message: %s\n", ::mosquitto_reason_string(code));
    const std::lock_guard lock(s->mutex);
    const auto found = s->unacknowledged.find(id);
    if (found == s->unacknowledged.end())
        return;
    s->unacknowledged_bytes -= found->second;
    s->unacknowledged.erase(found);
    if (s->lost > 0 && s->unacknowledged.size() < kMqttQueueLimit / 2)
        s->log(kLogWarning, "notify: %llu messages did not reach the broker\n",
               static_cast<unsigned long long>(std::exchange(s->lost, 0)));
    if (s->status_is_due && s->unacknowledged.size() < kMqttQueueLimit / 2)
        s->send_status();
    s->changed.notify_all();
}

void State::on_subscribe(mosquitto *, void *self, int, int count, const int *granted,
                         const mosquitto_property *)
{
    auto *s = static_cast<State *>(self);
    if (std::any_of(granted, granted + count, [](int qos) { return qos >= MQTT_RC_UNSPECIFIED; }))
        s->log(kLogError, "notify: the broker does not let us listen to requests\n");
}

void State::on_message(mosquitto *, void *self, const mosquitto_message *message,
                       const mosquitto_property *properties)
{
    auto *s = static_cast<State *>(self);
    if (message->retain) // it is nobody's request of today
        return;
    std::function<void(MqttRequest)> taker;
    {
        const std::lock_guard lock(s->mutex);
        taker = s->request;
    }
    try {
        if (taker)
            taker(request_of(*message, properties));
    } catch (const std::exception &error) {
        s->log(kLogError, "notify: a request is lost: %s\n", error.what());
    }
}

void State::subscribe()
{
    ::mosquitto_subscribe_v5(client.get(), nullptr, fleet_topic(config, "request").c_str(), kQos,
                             MQTT_SUB_OPT_SEND_RETAIN_NEVER | MQTT_SUB_OPT_RETAIN_AS_PUBLISHED, nullptr);
}

void State::set_will()
{
    std::string will;
    {
        const std::lock_guard lock(mutex);
        will = farewell;
    }
    if (config.commands)
        ::mosquitto_will_set_v5(client.get(), fleet_topic(config, "status").c_str(),
                                static_cast<int>(will.size()), will.data(), kQos, true, nullptr);
}

// With the mutex. While the broker is away there is nothing to tell: what holds at the next connect is sent
// then.
void State::send_status()
{
    if (config.commands && connected && !status.empty())
        status_is_due = !publish_locked(fleet_topic(config, "status"), status, nullptr, true);
}

// Looks the broker up and connects; both may block for long, which only this thread feels.
int State::open_connection()
{
    served = false;
    set_will();
    Properties properties;
    if (config.commands)
        properties.number(MQTT_PROP_MAXIMUM_PACKET_SIZE, kMqttRequestBytes);
    errno = 0;
    const int rc = ::mosquitto_connect_bind_v5(client.get(), config.host.c_str(), config.port,
                                               kKeepAliveSeconds, nullptr, properties.get());
    if (rc != MOSQ_ERR_SUCCESS)
        note_down(rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : ::mosquitto_strerror(rc));
    return rc;
}

bool State::publish(const std::string &topic, const std::string &payload,
                    const mosquitto_property *properties, bool retain)
{
    const std::lock_guard lock(mutex); // so that on_publish finds it
    return publish_locked(topic, payload, properties, retain);
}

// Replies leave some for events and the status, however many ask.
bool State::has_room(std::size_t bytes, bool is_reply) const
{
    const auto share = [is_reply](std::size_t whole) { return is_reply ? whole / 4 * 3 : whole; };
    return unacknowledged.size() < share(kMqttQueueLimit) &&
           unacknowledged_bytes + bytes <= share(kMqttQueueBytes);
}

bool State::publish_locked(const std::string &topic, const std::string &payload,
                           const mosquitto_property *properties, bool retain)
{
    const bool is_reply = properties != nullptr;
    if (!has_room(payload.size(), is_reply)) {
        if (is_reply) // who sends it says so
            return false;
        if (lost++ == 0)
            log(kLogWarning, "notify: the broker's queue is full, further events are lost\n");
        return false;
    }
    int id = 0;
    const int rc = ::mosquitto_publish_v5(client.get(), &id, topic.c_str(), static_cast<int>(payload.size()),
                                          payload.data(), kQos, retain, properties);
    // A lost connection is no failure here: the library keeps the message and sends it after the next
    // connect.
    if (rc != MOSQ_ERR_SUCCESS && rc != MOSQ_ERR_NO_CONN && rc != MOSQ_ERR_CONN_LOST) {
        log(kLogWarning, "notify: cannot publish %s: %s\n", topic.c_str(), ::mosquitto_strerror(rc));
        return false;
    }
    unacknowledged[id] = payload.size();
    unacknowledged_bytes += payload.size();
    return true;
}

// The broker then says that we are gone, as our last will.
void State::disconnect()
{
    ::mosquitto_disconnect_v5(client.get(), config.commands ? MQTT_RC_DISCONNECT_WITH_WILL_MSG : 0, nullptr);
}

// False when the client stops.
bool State::pause(std::chrono::milliseconds time)
{
    std::unique_lock lock(mutex);
    return !changed.wait_for(lock, time, [this] { return stopping; });
}

// The library's loop reconnects by itself, but gives up after some failures (of TLS, of the protocol, at the
// first connect); we do not.
void State::run()
{
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return stopping || !config.commands || (joined && !status.empty()); });
    }
    std::chrono::milliseconds delay = kRetryFirst;
    while (!is_stopping()) {
        if (open_connection() == MOSQ_ERR_SUCCESS) {
            if (is_stopping())
                disconnect();
            const int end = ::mosquitto_loop_forever(client.get(), -1, 1);
            if (end != MOSQ_ERR_SUCCESS)
                note_down(::mosquitto_strerror(end));
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

    const MqttConfig &config() const override { return state_->config; }
    void publish(std::string event, std::string payload) override;
    void join(std::function<void(MqttRequest)> request) override;
    void leave() override;
    bool reply(const MqttReply &reply) override;
    void tell_status(std::string status, std::string farewell) override;

  private:
    std::shared_ptr<State> state_; // the thread's too: one that hangs in a name lookup is left behind
    std::thread thread_;
};

Client::~Client()
{
    State &s = *state_;
    const Deadline deadline = deadline_in(kStopPatience);
    std::unique_lock lock(s.mutex);
    s.stopping = true;
    s.changed.notify_all();
    s.changed.wait_until(lock, deadline, [&] { return s.ended || !s.connected || s.unacknowledged.empty(); });
    lock.unlock();
    s.disconnect();
    lock.lock();
    const bool ended = s.changed.wait_until(lock, deadline + 100ms, [&] { return s.ended; });
    lock.unlock();
    if (ended)
        thread_.join();
    else
        thread_.detach();
}

void Client::publish(std::string event, std::string payload)
{
    const MqttConfig &c = config();
    state_->publish(c.prefix + "/" + (c.id.empty() ? host_name() : c.id) + "/" + event, payload, nullptr,
                    false);
}

void Client::join(std::function<void(MqttRequest)> request)
{
    const std::lock_guard lock(state_->mutex);
    state_->request = std::move(request);
    state_->joined = true;
    state_->changed.notify_all();
}

void Client::leave()
{
    const std::lock_guard lock(state_->mutex);
    state_->request = nullptr;
}

bool Client::reply(const MqttReply &reply)
{
    Properties properties;
    properties.binary(MQTT_PROP_CORRELATION_DATA, reply.correlation);
    for (const auto &[name, value] : reply.properties)
        properties.pair(name, value);
    return properties.good() && state_->publish(reply.topic, reply.payload, properties.get(), false);
}

void Client::tell_status(std::string status, std::string farewell)
{
    const std::lock_guard lock(state_->mutex);
    state_->status = std::move(status);
    state_->farewell = std::move(farewell);
    state_->changed.notify_all();
    state_->send_status();
}

std::unique_ptr<MqttClient> start(MqttConfig config, decltype(&qv_log_print) log)
{
    auto state = std::make_shared<State>(std::move(config), log);
    return state->prepare() ? std::make_unique<Client>(std::move(state)) : nullptr;
}

} // namespace

QVCD_MODULE(MqttModule, start)

} // namespace qvcd

#include "client/fleet/link.h"

#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <mutex>

#include "client/errors.h"
#include "platform/mqtt_properties.h"
#include "platform/thread.h"

namespace qvcd::client::fleet {

namespace {

constexpr int kKeepAliveSeconds = 30;
constexpr std::chrono::seconds kRetry{1};
constexpr std::chrono::seconds kStopPatience{1};
constexpr std::size_t kMostWaitingBytes = std::size_t{8} << 20;
constexpr std::uint32_t kMostPacketBytes = std::uint32_t{1} << 20; // several times a part of a reply

class PropertyList {
  public:
    PropertyList() = default;
    ~PropertyList() { ::mosquitto_property_free_all(&list); }
    PropertyList(const PropertyList &) = delete;
    PropertyList &operator=(const PropertyList &) = delete;
    mosquitto_property *list = nullptr;
};

const char *or_none(const std::string &text)
{
    return text.empty() ? nullptr : text.c_str();
}

std::string reason_of(int rc)
{
    return rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : ::mosquitto_strerror(rc);
}

void check(int rc, const std::string &what)
{
    if (rc != MOSQ_ERR_SUCCESS)
        throw WireError(what + ": " + reason_of(rc));
}

std::size_t bytes_of(const Happening &happening)
{
    return sizeof happening + happening.topic.size() + happening.payload.size();
}

} // namespace

struct Link::Shared {
    struct Free {
        void operator()(mosquitto *client) const noexcept { ::mosquitto_destroy(client); }
    };
    std::string host;
    int port = 0;
    std::unique_ptr<mosquitto, Free> client;
    std::mutex mutex; // guards what follows
    std::condition_variable changed;
    std::deque<Happening> happenings;
    std::size_t bytes = 0; // of them
    bool stopping = false;
    bool ended = false;

    void note(Happening happening);
    bool stops_within(std::chrono::seconds time);
    void run();
};

struct Link::Callbacks {
    static Shared &of(void *self) { return *static_cast<Shared *>(self); }

    static void connected(mosquitto *, void *self, int code, int, const mosquitto_property *)
    {
        if (code == 0)
            of(self).note({.kind = Happening::Kind::connected});
        else
            of(self).note(
                {.kind = Happening::Kind::lost,
                 .reason = std::string("the broker refuses us: ") + ::mosquitto_reason_string(code)});
    }
    static void disconnected(mosquitto *, void *self, int code, const mosquitto_property *)
    {
        of(self).note({.kind = Happening::Kind::lost,
                       .reason = std::string("the broker refuses us: ") + ::mosquitto_strerror(code)});
    }
    static void subscribed(mosquitto *, void *self, int, int count, const int *granted,
                           const mosquitto_property *)
    {
        bool good = true;
        for (int i = 0; i < count; ++i)
            good &= granted[i] < MQTT_RC_UNSPECIFIED;
        of(self).note({.kind = Happening::Kind::subscribed, .reason = good ? "" : "not authorized"});
    }
    static void published(mosquitto *, void *self, int id, int code, const mosquitto_property *)
    {
        if (code != 0)
            of(self).note(
                {.kind = Happening::Kind::not_taken,
                 .message_id = id,
                 .reason = code == MQTT_RC_NO_MATCHING_SUBSCRIBERS ? "" : ::mosquitto_reason_string(code)});
    }
    static void message(mosquitto *, void *self, const mosquitto_message *m,
                        const mosquitto_property *properties)
    {
        Happening happening{.kind = Happening::Kind::message, .topic = m->topic};
        happening.payload.assign(static_cast<const char *>(m->payload),
                                 static_cast<std::size_t>(m->payloadlen));
        happening.correlation = correlation_in(properties);
        happening.properties = user_properties_in(properties);
        of(self).note(std::move(happening));
    }
};

Link::Link(const Settings &s) : shared_(std::make_shared<Shared>())
{
    static const int library = ::mosquitto_lib_init();
    shared_->host = s.host;
    shared_->port = s.port;
    shared_->client.reset(::mosquitto_new(nullptr, true, shared_.get()));
    if (library != MOSQ_ERR_SUCCESS || !shared_->client)
        throw WireError("cannot make an MQTT client");
    mosquitto *const c = shared_->client.get();
    ::mosquitto_threaded_set(c, true);
    ::mosquitto_int_option(c, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    ::mosquitto_connect_v5_callback_set(c, &Callbacks::connected);
    ::mosquitto_disconnect_v5_callback_set(c, &Callbacks::disconnected);
    ::mosquitto_subscribe_v5_callback_set(c, &Callbacks::subscribed);
    ::mosquitto_publish_v5_callback_set(c, &Callbacks::published);
    ::mosquitto_message_v5_callback_set(c, &Callbacks::message);
    ::mosquitto_reconnect_delay_set(c, 1, 5, true);
    if (!s.broker_user.empty())
        check(::mosquitto_username_pw_set(c, s.broker_user.c_str(), or_none(s.broker_password)),
              "the user of the broker cannot be used");
    if (s.tls)
        check(::mosquitto_tls_set(c, or_none(s.cafile), s.cafile.empty() ? "/etc/ssl/certs" : nullptr,
                                  or_none(s.certfile), or_none(s.keyfile), nullptr),
              "the files for TLS cannot be used");
    thread_ = start_quiet_thread([shared = shared_] { shared->run(); });
}

bool Link::Shared::stops_within(std::chrono::seconds time)
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, time, [this] { return stopping; });
}

// The library's loop reconnects by itself, but gives up after some failures; we do not.
void Link::Shared::run()
{
    PropertyList p; // the library keeps a copy for later connects
    ::mosquitto_property_add_int32(&p.list, MQTT_PROP_MAXIMUM_PACKET_SIZE, kMostPacketBytes);
    errno = 0;
    int rc =
        ::mosquitto_connect_bind_v5(client.get(), host.c_str(), port, kKeepAliveSeconds, nullptr, p.list);
    if (rc != MOSQ_ERR_SUCCESS)
        note({.kind = Happening::Kind::lost,
              .reason = "cannot reach the broker at " + host + " port " + std::to_string(port) + ": " +
                        reason_of(rc)});
    while (!stops_within(rc == MOSQ_ERR_SUCCESS ? std::chrono::seconds{0} : kRetry)) {
        rc = rc == MOSQ_ERR_SUCCESS ? ::mosquitto_loop_forever(client.get(), -1, 1)
                                    : ::mosquitto_reconnect(client.get());
    }
    const std::lock_guard lock(mutex);
    ended = true;
    changed.notify_all();
}

Link::~Link()
{
    {
        const std::lock_guard lock(shared_->mutex);
        shared_->stopping = true;
        shared_->changed.notify_all();
    }
    ::mosquitto_disconnect(shared_->client.get());
    std::unique_lock lock(shared_->mutex);
    const bool ended = shared_->changed.wait_for(lock, kStopPatience, [this] { return shared_->ended; });
    lock.unlock();
    ended ? thread_.join() : thread_.detach();
}

void Link::subscribe(const std::vector<std::string> &topics, int qos)
{
    std::vector<std::string> copies = topics;
    std::vector<char *> names;
    for (std::string &topic : copies)
        names.push_back(topic.data());
    ::mosquitto_subscribe_multiple(shared_->client.get(), nullptr, static_cast<int>(names.size()),
                                   names.data(), qos, 0, nullptr);
}

std::optional<int> Link::send(const Request &request)
{
    PropertyList p;
    if (!request.response_topic.empty())
        ::mosquitto_property_add_string(&p.list, MQTT_PROP_RESPONSE_TOPIC, request.response_topic.c_str());
    if (!request.correlation.empty())
        ::mosquitto_property_add_binary(&p.list, MQTT_PROP_CORRELATION_DATA, request.correlation.data(),
                                        static_cast<std::uint16_t>(request.correlation.size()));
    if (request.expiry.count() > 0)
        ::mosquitto_property_add_int32(&p.list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                       static_cast<std::uint32_t>(request.expiry.count()));
    for (const auto &[name, value] : request.properties)
        ::mosquitto_property_add_string_pair(&p.list, MQTT_PROP_USER_PROPERTY, name.c_str(), value.c_str());
    int id = 0;
    const int rc = ::mosquitto_publish_v5(shared_->client.get(), &id, request.topic.c_str(),
                                          static_cast<int>(request.payload.size()), request.payload.data(), 1,
                                          false, p.list);
    return rc == MOSQ_ERR_SUCCESS ? std::optional(id) : std::nullopt;
}

void Link::Shared::note(Happening happening)
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return stopping || bytes < kMostWaitingBytes; });
    bytes += bytes_of(happening);
    happenings.push_back(std::move(happening));
    changed.notify_all();
}

std::optional<Happening> Link::next(Deadline deadline)
{
    Shared &s = *shared_;
    std::unique_lock lock(s.mutex);
    s.changed.wait_until(lock, deadline, [&] { return !s.happenings.empty(); });
    if (s.happenings.empty())
        return std::nullopt;
    Happening first = std::move(s.happenings.front());
    s.happenings.pop_front();
    s.bytes -= bytes_of(first);
    s.changed.notify_all();
    return first;
}

} // namespace qvcd::client::fleet

#include "client/fleet/link.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include "client/errors.h"
#include "platform/thread.h"

namespace qvcd::client::fleet {

namespace {

constexpr int kKeepAliveSeconds = 30;
constexpr std::chrono::seconds kRetry{1};

std::string taken(char *text)
{
    std::string copy = text ? text : "";
    std::free(text);
    return copy;
}

class PropertyList {
  public:
    PropertyList() = default;
    ~PropertyList() { ::mosquitto_property_free_all(&list); }
    PropertyList(const PropertyList &) = delete;
    PropertyList &operator=(const PropertyList &) = delete;
    mosquitto_property *list = nullptr;
};

void read_properties(const mosquitto_property *properties, Happening &happening)
{
    void *bytes = nullptr;
    std::uint16_t size = 0;
    if (::mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &bytes, &size, false)) {
        happening.correlation.assign(static_cast<const char *>(bytes), size);
        std::free(bytes);
    }
    char *name = nullptr;
    char *value = nullptr;
    const mosquitto_property *at = properties;
    for (bool next = false;
         (at = ::mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, next));
         next = true) {
        std::string first = taken(name);
        happening.properties.emplace_back(std::move(first), taken(value));
    }
}

const char *or_none(const std::string &text)
{
    return text.empty() ? nullptr : text.c_str();
}

void check(int rc, const std::string &what)
{
    if (rc != MOSQ_ERR_SUCCESS)
        throw WireError(what + ": " +
                        (rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : ::mosquitto_strerror(rc)));
}

} // namespace

void Link::Free::operator()(mosquitto *client) const noexcept
{
    ::mosquitto_destroy(client);
}

struct Link::Callbacks {
    static Link &of(void *self) { return *static_cast<Link *>(self); }

    static void connected(mosquitto *, void *self, int code, int, const mosquitto_property *)
    {
        if (code == 0)
            of(self).note({.kind = Happening::Kind::connected});
        else
            of(self).note({.kind = Happening::Kind::lost, .reason = ::mosquitto_reason_string(code)});
    }
    static void disconnected(mosquitto *, void *self, int code, const mosquitto_property *)
    {
        of(self).note({.kind = Happening::Kind::lost, .reason = ::mosquitto_strerror(code)});
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
        read_properties(properties, happening);
        of(self).note(std::move(happening));
    }
};

Link::Link(const Settings &s)
{
    static const int library = ::mosquitto_lib_init();
    client_.reset(::mosquitto_new(nullptr, true, this));
    if (library != MOSQ_ERR_SUCCESS || !client_)
        throw WireError("cannot make an MQTT client");
    mosquitto *const c = client_.get();
    ::mosquitto_threaded_set(c, true);
    ::mosquitto_int_option(c, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    ::mosquitto_connect_v5_callback_set(c, &Callbacks::connected);
    ::mosquitto_disconnect_v5_callback_set(c, &Callbacks::disconnected);
    ::mosquitto_subscribe_v5_callback_set(c, &Callbacks::subscribed);
    ::mosquitto_publish_v5_callback_set(c, &Callbacks::published);
    ::mosquitto_message_v5_callback_set(c, &Callbacks::message);
    ::mosquitto_reconnect_delay_set(c, 1, 5, true);
    const std::string where = "cannot reach the broker at " + s.host + " port " + std::to_string(s.port);
    if (!s.broker_user.empty())
        check(::mosquitto_username_pw_set(c, s.broker_user.c_str(), or_none(s.broker_password)), where);
    if (s.tls)
        check(::mosquitto_tls_set(c, or_none(s.cafile), s.cafile.empty() ? "/etc/ssl/certs" : nullptr,
                                  or_none(s.certfile), or_none(s.keyfile), nullptr),
              "the files for TLS cannot be used");
    errno = 0;
    check(::mosquitto_connect_bind_v5(c, s.host.c_str(), s.port, kKeepAliveSeconds, nullptr, nullptr), where);
    thread_ = start_quiet_thread([this] { run(); });
}

// The library's loop reconnects by itself, but gives up after some failures; we do not.
void Link::run()
{
    for (;;) {
        const int rc = ::mosquitto_loop_forever(client_.get(), -1, 1);
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, kRetry, [this] { return stopping_; }))
            return;
        lock.unlock();
        if (rc != MOSQ_ERR_SUCCESS)
            ::mosquitto_reconnect(client_.get());
    }
}

Link::~Link()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    ::mosquitto_disconnect(client_.get());
    thread_.join();
}

void Link::subscribe(const std::vector<std::string> &topics, int qos)
{
    std::vector<std::string> copies = topics;
    std::vector<char *> names;
    for (std::string &topic : copies)
        names.push_back(topic.data());
    ::mosquitto_subscribe_multiple(client_.get(), nullptr, static_cast<int>(names.size()), names.data(), qos,
                                   0, nullptr);
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
    const int rc = ::mosquitto_publish_v5(client_.get(), &id, request.topic.c_str(),
                                          static_cast<int>(request.payload.size()), request.payload.data(), 1,
                                          false, p.list);
    return rc == MOSQ_ERR_SUCCESS ? std::optional(id) : std::nullopt;
}

void Link::note(Happening happening)
{
    const std::lock_guard lock(mutex_);
    happenings_.push_back(std::move(happening));
    changed_.notify_all();
}

std::optional<Happening> Link::next(Deadline deadline)
{
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, deadline, [this] { return !happenings_.empty(); });
    if (happenings_.empty())
        return std::nullopt;
    Happening first = std::move(happenings_.front());
    happenings_.pop_front();
    return first;
}

} // namespace qvcd::client::fleet

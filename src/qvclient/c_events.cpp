// The C face of events.

#include <nlohmann/json.hpp>

#include "qvclient/c_objects.h"

using namespace qvcd::client;

qvc_event::qvc_event(std::string text) : json(std::move(text))
{
    const nlohmann::json event = nlohmann::json::parse(json, nullptr, false);
    if (!event.is_object())
        throw WireError("what came is no event");
    const auto field = [&](const char *key) { return event.value(key, ""); };
    kind = field("event");
    value = field("payload");
    if (const std::size_t equals = value.find('='); equals != std::string::npos) {
        name = value.substr(0, equals);
        value.erase(0, equals + 1);
    }
}

qvc_status qvc_events_open(qvc_client *client, size_t count, const char *const *words, qvc_events **events)
{
    if (events)
        *events = nullptr;
    return with(client, [&] {
        if (!events)
            throw UsageError("nowhere to put the events");
        const auto limit = client->connect_ms != 0 ? std::chrono::milliseconds(client->connect_ms)
                                                   : usual_limits("").connect;
        const std::vector<std::string> filter =
            count > 0 ? words_of({count, words}) : std::vector<std::string>();
        *events = new qvc_events{EventStream(client->endpoint, client->caller, filter, limit)};
        return QVC_OK;
    });
}

void qvc_events_close(qvc_events *events)
{
    delete events;
}

qvc_status qvc_events_next(qvc_events *events, int timeout, qvc_event **event)
{
    if (event)
        *event = nullptr;
    if (!events || !event || timeout < -1)
        return QVC_ARGUMENT;
    std::string problem; // the status says it all
    return guarded(problem, [&] {
        auto text = events->stream.next(std::chrono::milliseconds(timeout));
        if (!text)
            return QVC_TIMEOUT;
        *event = new qvc_event(std::move(*text));
        return QVC_OK;
    });
}

int qvc_events_fd(const qvc_events *events)
{
    return events ? events->stream.fd() : -1;
}

void qvc_event_free(qvc_event *event)
{
    delete event;
}

const char *qvc_event_kind(const qvc_event *event)
{
    return event ? event->kind.c_str() : nullptr;
}

const char *qvc_event_name(const qvc_event *event)
{
    return event && event->name ? event->name->c_str() : nullptr;
}

const char *qvc_event_value(const qvc_event *event)
{
    return event ? event->value.c_str() : nullptr;
}

const char *qvc_event_json(const qvc_event *event)
{
    return event ? event->json.c_str() : nullptr;
}

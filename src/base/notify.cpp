#include "base/notify.h"

#include "base/limits.h"
#include "base/text.h"
#include "platform/log.h"

#include <string>

namespace qvcd {

namespace {

std::string payload_of(std::string_view key, std::string_view value)
{
    std::string text(key);
    text += '=';
    text += value;
    return cut(text, kMaxValueBytes);
}

} // namespace

int notify_publish_on(std::string_view event, std::string_view key, std::string_view value, Secret secret)
{
    return notify_publish({event, key, value, secret});
}

int notify_publish(const Event &event)
{
    const auto &[name, key, value, secret, old, audience] = event;
    if (!qv_log_wants(kLogInfo) && !qvnotify_has_listeners())
        return 0;
    Notification n;
    n.identity = NOTIFY_IDENTITY;
    n.message_class = NOTIFY_PRIORITY;
    n.event = name;
    n.audience = audience;
    if (old && secret == Secret::no)
        n.old = cut(*old, kMaxValueBytes);
    n.payload = payload_of(key, secret == Secret::yes ? kHiddenPassword : value);
    n.public_payload = secret == Secret::no ? n.payload : payload_of(key, kHiddenPassword);
    n.topic = cut("qvc " + n.event, kMaxValueBytes);
    qv_log_print(kLogInfo, "notify: %s: %s (%s)\n", n.event.c_str(), n.public_payload.c_str(),
                 n.topic.c_str());
    qvnotify_send_publish_message(std::move(n));
    return 0;
}

} // namespace qvcd

#include "store/api_event.h"

#include "store/meta.h"

namespace qvcd {

namespace {

void publish(std::string_view event, std::string_view name, bool is_secret, std::string_view value,
             std::optional<std::string_view> old, Audience audience)
{
    notify_publish({event, name, value, is_secret ? Secret::yes : Secret::no, old, audience});
}

Audience audience_of(const Api &api)
{
    return {api.perm() & kReadBits, api.is_hidden_from(0) ? kLevel0Bits : ~0U};
}

} // namespace

void publish_api(std::string_view event, const Api &api, std::string_view value,
                 std::optional<std::string_view> old)
{
    publish(event, api.name(), api.is_secret(), value, old, audience_of(api));
}

void publish_api(std::string_view event, std::string_view name, bool is_secret, std::string_view value,
                 std::optional<std::string_view> old)
{
    const Api *const api = find_api(name);
    publish(event, name, is_secret, value, old, api ? audience_of(*api) : Audience{kLevel1Bits});
}

} // namespace qvcd

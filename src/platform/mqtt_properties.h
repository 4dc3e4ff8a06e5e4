#pragma once

#include <cstdint>
#include <cstdlib>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <string>
#include <utility>
#include <vector>

namespace qvcd {

// What a packet of MQTT 5 says beside its topic and payload. In a header of its own, because those who use it
// (the daemon's module and qvc-fleet) have the library, and libqv itself has not.

/// A copy of what the library gives, which is ours to free; empty for null.
inline std::string taken_text(char *text)
{
    std::string copy = text ? text : "";
    std::free(text);
    return copy;
}

/// Correlation data, of any bytes; empty when there is none.
inline std::string correlation_in(const mosquitto_property *properties)
{
    std::string correlation;
    void *bytes = nullptr;
    std::uint16_t size = 0;
    if (::mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &bytes, &size, false)) {
        correlation.assign(static_cast<const char *>(bytes), size);
        std::free(bytes);
    }
    return correlation;
}

/// User properties, names and values in their order.
inline std::vector<std::pair<std::string, std::string>>
user_properties_in(const mosquitto_property *properties)
{
    std::vector<std::pair<std::string, std::string>> found;
    char *name = nullptr;
    char *value = nullptr;
    const mosquitto_property *at = properties;
    for (bool next = false;
         (at = ::mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, next));
         next = true) {
        std::string first = taken_text(name); // both are freed, whatever the second one's memory
        found.emplace_back(std::move(first), taken_text(value));
    }
    return found;
}

} // namespace qvcd

// Fuzzing of the file that names the MQTT broker: what is taken from it can be connected to, and nothing of
// it goes over the end of its line.

#include "fuzz.h"
#include "platform/mqtt.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view text = view_of(data, size);
    const auto config = qvcd::parse_mqtt_config(text);
    if (!config)
        return 0;
    require(!config->host.empty() && config->port >= 1 && config->port <= 65535);
    for (const std::string &field :
         {config->host, config->user, config->password, config->cafile, config->prefix}) {
        require(field.find('\n') == std::string::npos);
        require(text.find(field) != std::string_view::npos || field == qvcd::MqttConfig{}.prefix);
    }
    return 0;
}

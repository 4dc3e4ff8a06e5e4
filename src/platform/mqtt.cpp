#include "platform/mqtt.h"

#include "platform/log.h"
#include "platform/mqtt_module.h"
#include "platform/sysroot.h"

#include <algorithm>
#include <charconv>

namespace qvcd {

namespace {

std::string_view trim(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::string_view next_line(std::string_view &text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

struct TextKey {
    std::string_view name;
    std::string MqttConfig::*member;
};

constexpr TextKey kTextKeys[] = {
    {"host", &MqttConfig::host},     {"user", &MqttConfig::user},     {"password", &MqttConfig::password},
    {"cafile", &MqttConfig::cafile}, {"prefix", &MqttConfig::prefix},
};

bool parse_port(std::string_view text, int &port)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() && port >= 1 && port <= 65535;
}

// False when the line makes the file useless.
bool take_line(std::string_view line, MqttConfig &config, std::optional<int> &port)
{
    const std::size_t equals = std::min(line.find('='), line.size());
    const std::string_view key = trim(line.substr(0, equals));
    const std::string_view value = equals < line.size() ? trim(line.substr(equals + 1)) : std::string_view();
    if (key == "port") {
        int number = 0;
        if (!parse_port(value, number)) {
            qv_log_print(kLogError, "%s: the port is no number from 1 to 65535, no events to the broker\n",
                         kMqttConfigFile);
            return false;
        }
        port = number;
        return true;
    }
    const auto *row = std::ranges::find(kTextKeys, key, &TextKey::name);
    if (row != std::end(kTextKeys))
        config.*(row->member) = value;
    else
        qv_log_print(kLogWarning, "%s: unknown key %.*s\n", kMqttConfigFile, static_cast<int>(key.size()),
                     key.data());
    return true;
}

} // namespace

std::optional<MqttConfig> parse_mqtt_config(std::string_view text)
{
    MqttConfig config;
    std::optional<int> port;
    while (!text.empty()) {
        const std::string_view line = trim(next_line(text));
        if (!line.empty() && line.front() != '#' && !take_line(line, config, port))
            return std::nullopt;
    }
    if (config.host.empty())
        return std::nullopt;
    config.port = port.value_or(config.cafile.empty() ? 1883 : 8883);
    return config;
}

std::unique_ptr<MqttClient> MqttClient::start(MqttConfig config)
{
    if (!config.cafile.empty())
        config.cafile = qv_sysroot_path(config.cafile);
    try {
        return module<MqttModule>().start(std::move(config), qv_log_print);
    } catch (const ModuleError &error) {
        qv_log_print(kLogError, "notify: no events to the broker: %s\n", error.what());
        return nullptr;
    }
}

} // namespace qvcd

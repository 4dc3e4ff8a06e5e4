#include "platform/mqtt.h"

#include "platform/host_name.h"
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
    {"host", &MqttConfig::host},         {"user", &MqttConfig::user},
    {"password", &MqttConfig::password}, {"cafile", &MqttConfig::cafile},
    {"certfile", &MqttConfig::certfile}, {"keyfile", &MqttConfig::keyfile},
    {"prefix", &MqttConfig::prefix},     {"id", &MqttConfig::id},
    {"facts", &MqttConfig::facts},
};

// What stands for itself in the file, and in the end for something else.
struct Answers {
    std::optional<int> port;
    bool commands = false;
    bool insecure = false;
};

bool parse_port(std::string_view text, int &port)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() && port >= 1 && port <= 65535;
}

// False when the line makes the file useless.
bool take_line(std::string_view line, MqttConfig &config, Answers &answers)
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
        answers.port = number;
        return true;
    }
    if (key == "commands" || key == "insecure") {
        (key == "commands" ? answers.commands : answers.insecure) = value == "yes";
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

// Why no commands are taken; null: they are.
const char *refusal_of_commands(const MqttConfig &config, const Answers &answers)
{
    if (config.cafile.empty() && !answers.insecure)
        return "there is no cafile, and passwords would go in clear: commands need TLS, or insecure=yes";
    for (std::string_view rest = config.prefix; !rest.empty() || config.prefix.empty();) {
        const std::size_t slash = std::min(rest.find('/'), rest.size());
        if (!is_topic_level(rest.substr(0, slash)) || slash + 1 == rest.size())
            return "the prefix is no front of a topic, no commands are taken";
        rest.remove_prefix(std::min(slash + 1, rest.size()));
    }
    if (!is_topic_level(config.id))
        return "the id is no level of a topic, no commands are taken";
    if (config.certfile.empty() != config.keyfile.empty())
        return "certfile and keyfile belong together, no commands are taken";
    return nullptr;
}

} // namespace

bool is_topic_level(std::string_view text)
{
    constexpr std::size_t kMostBytes = 64;
    return !text.empty() && text.size() <= kMostBytes && std::ranges::all_of(text, [](char c) {
        return c > ' ' && c < '\x7f' && std::string_view("/+#$").find(c) == std::string_view::npos;
    });
}

std::optional<MqttConfig> parse_mqtt_config(std::string_view text)
{
    MqttConfig config;
    Answers answers;
    while (!text.empty()) {
        const std::string_view line = trim(next_line(text));
        if (!line.empty() && line.front() != '#' && !take_line(line, config, answers))
            return std::nullopt;
    }
    if (config.host.empty())
        return std::nullopt;
    config.port = answers.port.value_or(config.cafile.empty() ? 1883 : 8883);
    if (!answers.commands)
        return config;
    if (config.id.empty())
        config.id = host_name();
    const char *const refusal = refusal_of_commands(config, answers);
    if (refusal)
        qv_log_print(kLogError, "%s: %s\n", kMqttConfigFile, refusal);
    config.commands = !refusal;
    return config;
}

std::unique_ptr<MqttClient> MqttClient::start(MqttConfig config)
{
    for (std::string *file : {&config.cafile, &config.certfile, &config.keyfile}) {
        if (!file->empty())
            *file = qv_sysroot_path(*file);
    }
    try {
        return module<MqttModule>().start(std::move(config), qv_log_print);
    } catch (const ModuleError &error) {
        qv_log_print(kLogError, "notify: no events to the broker: %s\n", error.what());
        return nullptr;
    }
}

} // namespace qvcd

// Many appliances on a few connections: each has its retained status and answers `get` with a value of its
// own. Usage: simulated PORT CAFILE USER PASSWORD COUNT      says "ready" when all can be asked, and ends
// with its input

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kOfConnection = 500;
constexpr int kKeepAliveSeconds = 60;
const std::string kTopics = "qv/fleet/";

std::atomic<int> not_ready{0};

std::string id_of(int number)
{
    std::string digits = std::to_string(number);
    return "sim" + std::string(6 - digits.size(), '0') + digits;
}

std::string status_of(int number)
{
    const std::string n = std::to_string(number);
    return R"({"id":")" + id_of(number) + R"(","online":true,"identity":")" + n + R"(","host":"qv-)" + n +
           R"(","model":"QV-E200","version":"2.1.)" + std::to_string(number % 3) + R"(","label":"Hall )" +
           std::to_string(number % 50) +
           R"(","uptime":8651,"time":"2026-01-01T00:00:00Z","revision":"9f0c3b7d11a2e854",)" +
           R"("modified":0,"unapplied":0,"links":{"eth0":"up","eth1":"down"}})";
}

void check(int rc)
{
    if (rc == MOSQ_ERR_SUCCESS)
        return;
    std::fprintf(stderr, "simulated: %s\n", mosquitto_strerror(rc));
    std::_Exit(1);
}

// "get NAME...": each has its own id as its value.
std::string reply_to(std::istringstream request, const std::string &id)
{
    std::string word, reply;
    request >> word;
    if (word != "get")
        return "##Unknown command#\n@\n1\n";
    while (request >> word)
        reply.append(word).append("=").append(id).append("\n");
    return reply + "@\n0\n";
}

void on_message(mosquitto *client, void *, const mosquitto_message *message,
                const mosquitto_property *properties)
{
    char *topic = nullptr;
    void *correlation = nullptr;
    std::uint16_t size = 0;
    mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false);
    mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &size, false);
    if (topic && correlation) {
        const std::string asked = message->topic;
        const std::string reply =
            reply_to(std::istringstream({static_cast<const char *>(message->payload),
                                         static_cast<std::size_t>(message->payloadlen)}),
                     asked.substr(asked.rfind('/') + 1));
        mosquitto_property *list = nullptr;
        mosquitto_property_add_binary(&list, MQTT_PROP_CORRELATION_DATA, correlation, size);
        mosquitto_property_add_string_pair(&list, MQTT_PROP_USER_PROPERTY, "part", "1");
        mosquitto_property_add_string_pair(&list, MQTT_PROP_USER_PROPERTY, "parts", "1");
        check(mosquitto_publish_v5(client, nullptr, topic, static_cast<int>(reply.size()), reply.data(), 1,
                                   false, list));
        mosquitto_property_free_all(&list);
    }
    std::free(topic);
    std::free(correlation);
}

// Counts what the broker has taken.
void on_done(mosquitto *, void *, int, int code, const mosquitto_property *)
{
    if (code >= MQTT_RC_UNSPECIFIED)
        check(MOSQ_ERR_ACL_DENIED);
    if (--not_ready == 0) {
        std::puts("ready");
        std::fflush(stdout);
    }
}

void on_subscribed(mosquitto *client, void *, int id, int, const int *granted,
                   const mosquitto_property *properties)
{
    on_done(client, nullptr, id, granted[0], properties);
}

// first, first + 1, ... `end` excluded
mosquitto *connect(char **words, int first, int end)
{
    mosquitto *const client = mosquitto_new(nullptr, true, nullptr);
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_subscribe_v5_callback_set(client, on_subscribed);
    mosquitto_message_v5_callback_set(client, on_message);
    check(mosquitto_username_pw_set(client, words[3], words[4]));
    check(mosquitto_tls_set(client, words[2], nullptr, nullptr, nullptr, nullptr));
    check(mosquitto_connect_bind_v5(client, "127.0.0.1", std::atoi(words[1]), kKeepAliveSeconds, nullptr,
                                    nullptr));
    check(mosquitto_loop_start(client));
    for (int n = first; n < end; ++n) {
        const std::string status = status_of(n);
        check(mosquitto_subscribe_v5(client, nullptr, (kTopics + "request/" + id_of(n)).c_str(), 1, 0,
                                     nullptr));
        check(mosquitto_publish_v5(client, nullptr, (kTopics + "status/" + id_of(n)).c_str(),
                                   static_cast<int>(status.size()), status.data(), 0, true, nullptr));
    }
    return client;
}

} // namespace

int main(int argc, char **argv)
{
    const int count = argc == 6 ? std::atoi(argv[5]) : 0;
    if (count < 1 || count > 999999) {
        std::fprintf(stderr, "Usage: simulated PORT CAFILE USER PASSWORD COUNT\n");
        return 2;
    }
    mosquitto_lib_init();
    not_ready = count;
    std::vector<mosquitto *> clients;
    for (int first = 0; first < count; first += kOfConnection)
        clients.push_back(connect(argv, first, std::min(first + kOfConnection, count)));
    for (char c = 0; read(STDIN_FILENO, &c, 1) > 0;)
        ;
    for (mosquitto *client : clients) {
        mosquitto_disconnect(client);
        mosquitto_loop_stop(client, false);
        mosquitto_destroy(client);
    }
    return 0;
}

#include "fleet/relayed.h"

#include "base/limits.h"
#include "base/text.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr char kSource[] = "mqtt"; // all of it is one place: for the delays of logins, and for the log
constexpr std::size_t kMostTopicBytes = 256;

std::string property(const MqttRequest &request, std::string_view name)
{
    const auto found = std::ranges::find(request.properties, name, &MqttProperties::value_type::first);
    return found == request.properties.end() ? "" : found->second;
}

// A word of the first line.
std::string client_word(const std::string &name)
{
    const bool good = !name.empty() && name.size() <= kMaxLoggedWordBytes &&
                      std::ranges::all_of(name, [](char c) { return c > ' ' && c < '\x7f'; });
    return good ? name : kSource;
}

bool is_session(const std::string &text)
{
    constexpr std::size_t kMostDigits = 9;
    return !text.empty() && text.size() <= kMostDigits && text.front() != '0' &&
           std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

bool is_reply_topic(const MqttConfig &config, std::string_view topic)
{
    const std::string prefix = config.prefix + "/fleet/reply/";
    const std::string end = "/" + config.id;
    return topic.size() > prefix.size() + end.size() && topic.size() <= kMostTopicBytes &&
           topic.starts_with(prefix) && topic.ends_with(end) &&
           is_topic_level(topic.substr(prefix.size(), topic.size() - prefix.size() - end.size()));
}

const char *take_request(MqttRequest request, Relayed &relayed)
{
    if (request.correlation.empty() || request.correlation.size() > kMostCorrelationBytes)
        return "##Invalid correlation data#";
    relayed.peer.relayed = true;
    relayed.peer.address = kSource;
    std::string session = property(request, "session");
    if (session.empty()) {
        relayed.peer.login = PeerLogin{property(request, "user"), property(request, "password")};
        if (relayed.peer.login->user.empty())
            return "##Log in first#";
        session = "0";
    } else if (!is_session(session)) {
        return "##Log in first#";
    }
    relayed.text =
        client_word(property(request, "client")) + " " + session + " 0\n" + request.payload + "\n\n";
    relayed.caller = std::move(request.response_topic);
    relayed.correlation = std::move(request.correlation);
    return nullptr;
}

MqttReply reply_part(const Relayed &to, std::string_view payload, std::size_t part, std::size_t parts)
{
    return {to.caller,
            to.correlation,
            std::string(payload),
            {{"part", std::to_string(part)}, {"parts", std::to_string(parts)}}};
}

MqttReply refusal_of(std::string topic, std::string correlation, const std::string &error)
{
    return {std::move(topic),
            correlation.size() <= kMostCorrelationBytes ? std::move(correlation) : "",
            error + "\n@\n1\n",
            {{"part", "1"}, {"parts", "1"}, {"refused", "1"}}};
}

} // namespace qvcd

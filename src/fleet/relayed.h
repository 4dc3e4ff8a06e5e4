#pragma once

#include "platform/mqtt.h"
#include "platform/peer.h"

#include <string>

namespace qvcd {

/// A request as it came over the broker, checked and made into what a connection would bring.
struct Relayed {
    std::string caller;      ///< the response topic: whose requests are answered in order
    std::string correlation; ///< the request's number, of the caller's own
    Peer peer;
    std::string text; ///< the first line, the command lines, and the end
};

inline constexpr std::size_t kMostCorrelationBytes = 64;

/// True for "<prefix>/fleet/reply/<caller>/<our id>", of at most 256 bytes: nobody can have us write
/// elsewhere, and who listens to the replies of one appliance gets those of no other.
bool is_reply_topic(const MqttConfig &config, std::string_view topic);

/// Makes it from a message whose response topic is one. The log-in is in the user properties: "user" and
/// "password", or "session"; "client" is the word by which the log and the history know the program. An error
/// text when there is none of the two, or the correlation data is missing or longer than
/// kMostCorrelationBytes; null: `relayed` is good.
const char *take_request(MqttRequest request, Relayed &relayed);

/// A reply, or a part of it: the payload, the correlation data, and "part" and "parts".
MqttReply reply_part(const Relayed &to, std::string_view payload, std::size_t part, std::size_t parts);

/// Why nothing was run, as a reply; "refused" tells it from one of the daemon.
MqttReply refusal_of(std::string topic, std::string correlation, const std::string &error);

} // namespace qvcd

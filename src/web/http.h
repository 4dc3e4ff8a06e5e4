#pragma once

#include "web/message.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace qvcd::web {

/// "%XX" decoded; malformed ones stay as they are. In a query "+" is a blank.
std::string url_decode(std::string_view text, bool is_query);

/// Path and query of a request's target.
void take_target(std::string_view target, Request &request);

/// The token of the headers Authorization and Cookie, of which the first counts.
void take_credentials(std::string_view authorization, std::string_view cookies, Request &request);

struct Credentials {
    std::string user, password;
};

/// What "Basic BASE64" says; nothing for another text.
std::optional<Credentials> basic_credentials(std::string_view authorization);

/// "ADDRESS:PORT", "[ADDRESS]:PORT". Throws std::runtime_error for another text.
std::pair<std::string, unsigned> split_address(const std::string &text);

/// An IPv4 address that is written as an IPv6 one as what it is; without a zone.
std::string text_of_address(std::string address);

} // namespace qvcd::web

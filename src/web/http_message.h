#pragma once

#include "web/gate.h"
#include "web/message.h"

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <string>

namespace qvcd::web {

using HttpRequest = boost::beast::http::request<boost::beast::http::string_body>;
using HttpResponse = boost::beast::http::response<boost::beast::http::string_body>;

/// True for what two readers of a message could take for two different ones.
bool is_ambiguous(const HttpRequest &message);

/// What a message asks, but for its body. `client`: the address that it came from.
Request request_of(const HttpRequest &message, const std::string &client);

/// Where it says that it comes from; looks into both.
Origin origin_of(const HttpRequest &message, const Request &request);

/// The answer to a request as it is written. Strict transport is for what comes over TLS.
HttpResponse response_of(Answer &&answer, const Request &request, bool is_encrypted, bool keep_alive);

/// The header of what goes on until the connection ends.
std::string stream_header(const Answer &answer, bool is_encrypted);

} // namespace qvcd::web

#include "web/http_message.h"

#include "web/files.h"
#include "web/http.h"
#include "web/routes.h"

namespace qvcd::web {

namespace beast = boost::beast;
namespace http = beast::http;

namespace {

constexpr std::pair<const char *, const char *> kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; object-src 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Permissions-Policy", "camera=(), geolocation=(), microphone=()"},
};
constexpr char kStrictTransport[] = "max-age=31536000";

std::string_view view(beast::string_view text)
{
    return {text.data(), text.size()};
}

void add_headers(const Answer &answer, bool is_encrypted, http::fields &message)
{
    message.set(http::field::server, "qvweb");
    message.set(http::field::content_type, answer.type);
    for (const auto &[name, value] : kHeaders)
        message.set(name, value);
    if (is_encrypted)
        message.set("Strict-Transport-Security", kStrictTransport);
    message.set(http::field::cache_control, "no-store");
    for (const auto &[name, value] : answer.headers)
        message.set(name, value);
}

} // namespace

bool is_ambiguous(const HttpRequest &message)
{
    const auto encodings = message.count(http::field::transfer_encoding);
    const bool is_plain =
        encodings == 0 ||
        (encodings == 1 && beast::iequals(message[http::field::transfer_encoding], "chunked"));
    return !is_plain || message.count(http::field::host) > 1;
}

Request request_of(const HttpRequest &message, const std::string &client)
{
    Request request;
    request.method = std::string(message.method_string());
    request.client = client;
    take_target(view(message.target()), request);
    take_credentials(view(message[http::field::authorization]), view(message[http::field::cookie]), request);
    request.last_event_id = std::string(message["Last-Event-ID"]);
    request.known_version = std::string(message[http::field::if_none_match]);
    return request;
}

Origin origin_of(const HttpRequest &message, const Request &request)
{
    return {.host = view(message[http::field::host]),
            .origin = view(message[http::field::origin]),
            .fetch_site = view(message["Sec-Fetch-Site"]),
            .fetch_mode = view(message["Sec-Fetch-Mode"]),
            .changes = request.method != "GET" && request.method != "HEAD",
            .is_page = !is_api_path(request.path),
            .is_public = request.path == kPublicFile,
            .has_cookie = request.has_cookie};
}

HttpResponse response_of(Answer &&answer, const Request &request, bool is_encrypted, bool keep_alive)
{
    const bool has_body = answer.status != 204 && answer.status != 304;
    HttpResponse message(static_cast<http::status>(answer.status), 11);
    add_headers(answer, is_encrypted, message);
    if (!has_body)
        message.erase(http::field::content_type);
    message.keep_alive(keep_alive);
    if (has_body)
        message.content_length(answer.body.size());
    if (has_body && request.method != "HEAD")
        message.body() = std::move(answer.body);
    return message;
}

std::string stream_header(const Answer &answer, bool is_encrypted)
{
    http::fields fields;
    add_headers(answer, is_encrypted, fields);
    fields.set(http::field::connection, "close");
    std::string header = "HTTP/1.1 200 OK\r\n";
    for (const auto &field : fields)
        header.append(view(field.name_string())).append(": ").append(view(field.value())).append("\r\n");
    return header + "\r\n";
}

} // namespace qvcd::web

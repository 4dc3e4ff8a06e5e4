// The C face of clients and of single values.

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "qvclient/c_guard.h"
#include "qvclient/c_objects.h"
#include "qvclient/connect.h"
#include "qvclient/escape.h"

using namespace qvcd;
using namespace qvcd::client;

namespace {

constexpr std::size_t kLongestName = 64;
constexpr int kHighestPort = 65535;

const char *text_or_empty(const char *text)
{
    return text ? text : "";
}

bool is_limit(int milliseconds)
{
    return milliseconds >= 0 && std::chrono::milliseconds(milliseconds) <= kLongestLimit;
}

bool is_word(std::string_view text)
{
    return !text.empty() && text.size() <= kLongestName && text.front() != '?' &&
           std::ranges::all_of(text, [](char c) { return c > ' ' && c < 0x7f; });
}

// The text is for who wrote the program.
[[noreturn]] qvc_status wrong(const char *what)
{
    throw UsageError(what);
}

// For a single value: the daemon said no.
qvc_status refused(qvc_client &client, std::string_view reason)
{
    client.problem = reason;
    return QVC_REFUSED;
}

// The first error of a reply; "" when it holds none, although the command failed.
std::string first_error(const qvc_reply &reply)
{
    for (const Line &line : reply.lines) {
        if (line.error)
            return *line.error;
    }
    return {};
}

qvc_reply run(const qvc_client &client, const std::vector<std::string> &words)
{
    return qvc_reply(words, [&](const LineSink &sink) { return ask_with(client, words, sink); });
}

// One name, and not a list, or an assignment.
std::string single_name(const char *name)
{
    if (!name || *name == '\0' || std::strpbrk(name, ",="))
        throw UsageError("no name of a setting");
    return name;
}

qvc_status get(qvc_client &client, const std::string &name, char **value)
{
    const qvc_reply reply = run(client, {"get", name});
    if (reply.failed) {
        const std::string error = first_error(reply);
        return refused(client, error.empty() ? "no right to read it, or no such session" : error);
    }
    if (reply.lines.size() != 1 || reply.lines[0].name != name)
        return refused(client, reply.lines.empty() ? "nothing is shown" : "a group of settings");
    *value = ::strdup(reply.lines[0].value());
    return *value ? QVC_OK : QVC_MEMORY;
}

qvc_status log_in(qvc_client &client, const char *user, const char *password)
{
    const qvc_reply reply = run(client, {"login", user, password});
    const Line *line = reply.lines.empty() ? nullptr : &reply.lines.back();
    if (reply.failed || !line || line->name != "Session") {
        const std::string error = first_error(reply);
        return refused(client, error.empty() ? "the daemon gives no session" : error);
    }
    const std::string_view number = line->value();
    int session = 0;
    const auto parsed = std::from_chars(number.data(), number.data() + number.size(), session);
    if (parsed.ec != std::errc() || parsed.ptr != number.data() + number.size() || session < 0)
        throw WireError("the reply to login holds no session number");
    client.caller.session = session;
    return QVC_OK;
}

} // namespace

int qvcd::client::ask_with(const qvc_client &client, const std::vector<std::string> &words,
                           const LineSink &sink, std::optional<std::string> document)
{
    TimeLimits limits = usual_limits(document ? "apply" : words.at(0));
    if (client.connect_ms != 0)
        limits.connect = std::chrono::milliseconds(client.connect_ms);
    if (client.reply_ms != 0)
        limits.whole = std::chrono::milliseconds(client.reply_ms);
    Watcher watcher;
    if (document)
        watcher.patience = limits.whole;
    return exchange(client.endpoint, client.caller, {wire_line(words) + "\n", std::move(document)}, limits,
                    sink, watcher);
}

int qvc_version(void)
{
    return QVC_VERSION;
}

const char *qvc_version_text(void)
{
    return QVCLIENT_VERSION;
}

const char *qvc_status_text(qvc_status status)
{
    switch (status) {
    case QVC_OK:
        return "success";
    case QVC_REFUSED:
        return "refused by the daemon";
    case QVC_ARGUMENT:
        return "wrong argument";
    case QVC_MEMORY:
        return "no memory";
    case QVC_UNREACHABLE:
        return "the daemon cannot be reached";
    case QVC_UNTRUSTED:
        return "no TLS with the daemon that can be trusted";
    case QVC_TLS_FILE:
        return "a file for TLS cannot be used";
    case QVC_TIMEOUT:
        return "no answer within the time limit";
    case QVC_BROKEN:
        return "the connection ended too early";
    case QVC_INTERNAL:
        return "failure of the system";
    }
    return "unknown status";
}

qvc_client *qvc_client_new(void)
{
    return new (std::nothrow) qvc_client;
}

void qvc_client_free(qvc_client *client)
{
    delete client;
}

qvc_status qvc_client_use_local(qvc_client *client, const char *folder)
{
    return with(client, [&] {
        Endpoint endpoint;
        endpoint.folder = text_or_empty(folder);
        client->endpoint = endpoint;
        return QVC_OK;
    });
}

qvc_status qvc_client_use_tcp(qvc_client *client, const char *host, int port)
{
    return with(client, [&] {
        if (!host || *host == '\0' || port < 1 || port > kHighestPort)
            return wrong("no host and port");
        Endpoint endpoint;
        endpoint.host = host;
        endpoint.port = std::to_string(port);
        client->endpoint = endpoint;
        return QVC_OK;
    });
}

qvc_status qvc_client_use_tls(qvc_client *client, const char *authorities, const char *certificate,
                              const char *key)
{
    return with(client, [&] {
        if (client->endpoint.local())
            return wrong("TLS needs a host");
        if (!certificate != !key)
            return wrong("certificate and key belong together");
        client->endpoint.tls = TlsFiles{.certificate = text_or_empty(certificate),
                                        .key = text_or_empty(key),
                                        .authorities = text_or_empty(authorities)};
        client->endpoint.tls_context.reset();
        return QVC_OK;
    });
}

qvc_status qvc_client_set_timeouts(qvc_client *client, int connect, int reply)
{
    return with(client, [&] {
        if (!is_limit(connect) || !is_limit(reply))
            return wrong("no time limit");
        client->connect_ms = connect;
        client->reply_ms = reply;
        return QVC_OK;
    });
}

qvc_status qvc_client_set_name(qvc_client *client, const char *name)
{
    return with(client, [&] {
        if (!is_word(text_or_empty(name)))
            return wrong("no name for a client");
        client->caller.name = name;
        return QVC_OK;
    });
}

qvc_status qvc_client_set_session(qvc_client *client, int session)
{
    return with(client, [&] {
        if (session < 0)
            return wrong("no session number");
        client->caller.session = session;
        return QVC_OK;
    });
}

int qvc_client_session(const qvc_client *client)
{
    return client ? client->caller.session : 0;
}

qvc_status qvc_client_login(qvc_client *client, const char *user, const char *password)
{
    return with(client, [&] {
        return user && password ? log_in(*client, user, password) : wrong("user or password is null");
    });
}

qvc_status qvc_client_logout(qvc_client *client)
{
    return with(client, [&] {
        const qvc_reply reply = run(*client, {"logout", std::to_string(client->caller.session)});
        client->caller.session = 0;
        return reply.failed ? refused(*client, first_error(reply)) : QVC_OK;
    });
}

const char *qvc_problem(const qvc_client *client)
{
    return client ? client->problem.c_str() : "no client";
}

qvc_status qvc_get(qvc_client *client, const char *name, char **value)
{
    if (value)
        *value = nullptr;
    return with(client, [&] {
        return value ? get(*client, single_name(name), value) : wrong("nowhere to put the value");
    });
}

void qvc_text_free(char *text)
{
    std::free(text);
}

qvc_status qvc_set(qvc_client *client, const char *name, const char *value)
{
    return with(client, [&] {
        if (!value)
            return wrong("no value");
        const qvc_reply reply = run(*client, {"set", single_name(name) + "=" + value});
        if (!reply.failed)
            return QVC_OK;
        const std::string error = first_error(reply);
        return refused(*client, error.empty() ? "no such session" : error);
    });
}

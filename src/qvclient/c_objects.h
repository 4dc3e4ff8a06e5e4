#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qvclient/c_guard.h"
#include "qvclient/event_stream.h"
#include "qvclient/qvclient.h"
#include "qvclient/reply.h"
#include "qvclient/wire.h"

// What is behind the handles of qvclient.h.

struct qvc_client {
    qvcd::client::Endpoint endpoint;
    qvcd::client::Caller caller;
    int connect_ms = 0; // 0: the usual
    int reply_ms = 0;
    std::string problem;
};

namespace qvcd::client {

struct Line {
    explicit Line(std::string_view line);

    std::string text;
    std::optional<std::string> name;
    std::size_t value_at; // in `text`
    std::optional<std::string> error;

    const char *value() const { return text.c_str() + value_at; }
};

/// Runs the command `words` and hands its lines to `sink`; the result code. Throws UsageError and WireError.
int ask_with(const qvc_client &client, const std::vector<std::string> &words, const LineSink &sink,
             std::optional<std::string> document = std::nullopt);

/// The words that a caller hands over.
struct GivenWords {
    std::size_t count;
    const char *const *words;
};

/// Throws UsageError when they are too few or too many, or one is null.
std::vector<std::string> words_of(const GivenWords &given);

/// guarded() for functions of a client.
template <class Function>
qvc_status with(qvc_client *client, Function function) noexcept
{
    return client ? guarded(client->problem, function) : QVC_ARGUMENT;
}

} // namespace qvcd::client

struct qvc_reply {
    /// `run` hands the lines of the command `words` to its sink and returns the result code.
    qvc_reply(const std::vector<std::string> &words,
              const std::function<int(const qvcd::client::LineSink &sink)> &run);

    int result = 0;
    bool failed = false;
    std::string text;
    std::vector<qvcd::client::Line> lines;
};

struct qvc_events {
    qvcd::client::EventStream stream;
};

struct qvc_event {
    explicit qvc_event(std::string text);

    std::string json;
    std::string kind;
    std::optional<std::string> name;
    std::string value;
};

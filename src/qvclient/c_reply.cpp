// The C face of commands and their replies.

#include <algorithm>

#include "qvclient/c_objects.h"

using namespace qvcd::client;

namespace {

constexpr std::size_t kMostDocumentBytes = std::size_t{4} << 20; // that the daemon takes

// Who reads the lines does not want more.
struct Enough {};

qvc_status stream(const qvc_client &client, const std::vector<std::string> &words, qvc_take_line take,
                  void *context, int *result)
{
    std::string copy; // ends with a NUL byte
    try {
        const int code = ask_with(client, words, [&](std::string_view line) {
            copy = line;
            if (take(context, copy.c_str(), copy.size()) != 0)
                throw Enough();
        });
        if (result)
            *result = code;
        return QVC_OK;
    } catch (const Enough &) {
        throw WireError("the rest of the reply is not wanted");
    }
}

struct GivenDocument {
    const char *text;
    std::size_t size;
};

std::optional<std::string> document_of(const std::optional<GivenDocument> &given)
{
    if (!given)
        return std::nullopt;
    if (!given->text && given->size > 0)
        throw UsageError("no document");
    if (given->size > kMostDocumentBytes)
        throw UsageError("a document has at most 4 MiB");
    return given->text ? std::string(given->text, given->size) : std::string();
}

qvc_status run(qvc_client *client, const GivenWords &given, const std::optional<GivenDocument> &document,
               qvc_reply **reply)
{
    if (reply)
        *reply = nullptr;
    return with(client, [&] {
        if (!reply)
            throw UsageError("nowhere to put the reply");
        const std::optional<std::string> text = document_of(document);
        const std::vector<std::string> words = words_of(given);
        *reply =
            new qvc_reply(words, [&](const LineSink &sink) { return ask_with(*client, words, sink, text); });
        return QVC_OK;
    });
}

const Line *line_of(const qvc_reply *reply, std::size_t i)
{
    return reply && i < reply->lines.size() ? &reply->lines[i] : nullptr;
}

const char *c_text(const std::optional<std::string> &text)
{
    return text ? text->c_str() : nullptr;
}

} // namespace

std::vector<std::string> qvcd::client::words_of(const GivenWords &given)
{
    constexpr std::size_t kMostWords = 100; // the daemon would drop further ones without a word
    const auto [count, words] = given;
    if (count < 1 || count > kMostWords || !words || std::count(words, words + count, nullptr) != 0)
        throw UsageError("a command has 1 to 100 words");
    return {words, words + count};
}

Line::Line(std::string_view line) : text(line)
{
    const ReplyLine parts = parse_reply_line(text);
    value_at = static_cast<std::size_t>(parts.value.data() - text.data());
    if (value_at > 0)
        name = parts.name;
}

qvc_reply::qvc_reply(const std::vector<std::string> &words,
                     const std::function<int(const LineSink &sink)> &run)
{
    result = run([this](std::string_view line) {
        text.append(line).append("\n");
        lines.emplace_back(line);
    });
    failed = result != 0;
    for (Line &line : lines) {
        if (!says_error(words.at(0), result, line.text))
            continue;
        line.error = parse_reply_line(line.text).error;
        failed = true;
    }
}

qvc_status qvc_run(qvc_client *client, size_t count, const char *const *words, qvc_reply **reply)
{
    return run(client, {count, words}, std::nullopt, reply);
}

qvc_status qvc_run_with_document(qvc_client *client, size_t count, const char *const *words,
                                 const char *document, size_t size, qvc_reply **reply)
{
    return run(client, {count, words}, GivenDocument{document, size}, reply);
}

qvc_status qvc_stream(qvc_client *client, size_t count, const char *const *words, qvc_take_line take,
                      void *context, int *result)
{
    return with(client, [&] {
        if (!take)
            throw UsageError("nobody takes the lines");
        return stream(*client, words_of({count, words}), take, context, result);
    });
}

void qvc_reply_free(qvc_reply *reply)
{
    delete reply;
}

int qvc_reply_result(const qvc_reply *reply)
{
    return reply ? reply->result : 0;
}

int qvc_reply_failed(const qvc_reply *reply)
{
    return reply && reply->failed ? 1 : 0;
}

const char *qvc_reply_text(const qvc_reply *reply, size_t *size)
{
    if (size)
        *size = reply ? reply->text.size() : 0;
    return reply ? reply->text.c_str() : nullptr;
}

size_t qvc_reply_count(const qvc_reply *reply)
{
    return reply ? reply->lines.size() : 0;
}

const char *qvc_reply_line(const qvc_reply *reply, size_t i)
{
    const Line *line = line_of(reply, i);
    return line ? line->text.c_str() : nullptr;
}

const char *qvc_reply_name(const qvc_reply *reply, size_t i)
{
    const Line *line = line_of(reply, i);
    return line ? c_text(line->name) : nullptr;
}

const char *qvc_reply_value(const qvc_reply *reply, size_t i)
{
    const Line *line = line_of(reply, i);
    return line ? line->value() : nullptr;
}

const char *qvc_reply_error(const qvc_reply *reply, size_t i)
{
    const Line *line = line_of(reply, i);
    return line ? c_text(line->error) : nullptr;
}

#include "qvclient/reply.h"

#include <algorithm>
#include <charconv>

#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

std::optional<int> parse_code(std::string_view line)
{
    int code = 0;
    const auto parsed = std::from_chars(line.data(), line.data() + line.size(), code);
    const bool good = parsed.ec == std::errc() && parsed.ptr == line.data() + line.size();
    return good ? std::optional(code) : std::nullopt;
}

constexpr std::string_view kHashes = "##";

// The text of an error that begins the value: up to "#: ", before a value that is quoted, or to the last "#".
std::optional<std::string_view> error_in(std::string_view value)
{
    if (!value.starts_with(kHashes))
        return std::nullopt;
    value.remove_prefix(kHashes.size());
    const std::size_t quoted = value.find("#: ");
    const std::size_t end = quoted != std::string_view::npos ? quoted : value.rfind('#');
    if (end == std::string_view::npos || end == 0)
        return std::nullopt;
    return value.substr(0, end);
}

} // namespace

void ReplyParser::feed(std::string_view bytes)
{
    for (std::size_t end = 0; (end = bytes.find('\n')) != std::string_view::npos;
         bytes.remove_prefix(end + 1)) {
        if (partial_.empty()) {
            take_line(bytes.substr(0, end));
        } else {
            partial_ += bytes.substr(0, end);
            take_line(partial_);
            partial_.clear();
        }
    }
    partial_ += bytes;
    if (partial_.size() > kMostReplyLineBytes)
        throw WireError("the reply has a line without an end");
}

void ReplyParser::take_line(std::string_view line)
{
    if (marked_ && !code_ && (code_ = parse_code(line))) {
        number_ = line;
        return;
    }
    let_go();
    marked_ = line == "@";
    if (!marked_)
        sink_(line);
}

void ReplyParser::let_go()
{
    if (marked_)
        sink_("@");
    if (code_)
        sink_(number_);
    marked_ = false;
    code_.reset();
}

ReplyLine parse_reply_line(std::string_view line)
{
    const std::size_t equals = line.starts_with(kHashes) ? std::string_view::npos : line.find('=');
    if (equals == std::string_view::npos)
        return {.name = {}, .value = line, .error = error_in(line)};
    ReplyLine parts{.name = line.substr(0, equals), .value = line.substr(equals + 1), .error = std::nullopt};
    parts.error = error_in(parts.value);
    const std::size_t second = parts.value.rfind("=##");
    if (!parts.error && second != std::string_view::npos && line.ends_with('#'))
        parts.error = error_in(parts.value.substr(second + 1));
    return parts;
}

bool says_error(std::string_view command, int result, std::string_view line)
{
    static constexpr std::string_view kTellByResult[] = {
        "get",  "geti", "getv", "getd",     "getdv",    "set",        "sets",
        "seta", "setn", "help", "help.cmd", "help.api", "help.apihdf"};
    if (result == 0 && std::ranges::count(kTellByResult, command) != 0)
        return false;
    return parse_reply_line(line).error.has_value();
}

} // namespace qvcd::client

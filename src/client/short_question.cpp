#include "client/short_question.h"

#include <algorithm>

#include "client/reply_cache.h"
#include "qvclient/connect.h"
#include "qvclient/errors.h"

namespace qvcd::client {

namespace {

constexpr std::chrono::milliseconds kPatience{2000};
constexpr std::chrono::milliseconds kMostPatience{30000};

} // namespace

std::vector<std::string> ShortAnswer::lines() const
{
    return lines_of(text);
}

std::optional<ShortAnswer> ask_shortly(const Options &options, const std::vector<std::string> &commands)
{
    const auto patience = std::min(options.timeout.value_or(kPatience), kMostPatience);
    ShortAnswer answer;
    try {
        answer.result = ask(options.endpoint, options.session, commands, {patience, patience},
                            [&](std::string_view line) { answer.text.append(line).append("\n"); });
    } catch (const WireError &) {
        return std::nullopt;
    } catch (const UsageError &) { // a file for TLS
        return std::nullopt;
    }
    return answer;
}

std::string kept_answer(const Options &options, const std::string &command)
{
    const std::string certificate = options.endpoint.tls ? " " + options.endpoint.tls->certificate : "";
    const std::string key =
        options.endpoint.text() + certificate + " " + std::to_string(options.session) + " " + command;
    if (const auto kept = cached_text(key))
        return *kept;
    const std::optional<ShortAnswer> answer = ask_shortly(options, {command});
    if (!answer || answer->result != 0)
        return {};
    cache_text(key, answer->text);
    return answer->text;
}

std::vector<std::string> lines_of(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::optional<std::string> value_in(const std::vector<std::string> &lines, const std::string &key)
{
    const auto line =
        std::ranges::find_if(lines, [&](const std::string &one) { return one.starts_with(key + "="); });
    return line == lines.end() ? std::nullopt : std::optional(line->substr(key.size() + 1));
}

} // namespace qvcd::client

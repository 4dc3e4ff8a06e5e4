#include "base/kv_file.h"

#include "base/file_text.h"
#include "base/limits.h"

namespace qvcd {

namespace {

constexpr std::string_view kSeparators = "= \t:";

// Cuts the next piece off the text: up to and including the newline, at most kMaxFileLineBytes.
std::string_view next_piece(std::string_view &text)
{
    const std::size_t newline = text.substr(0, kMaxFileLineBytes).find('\n');
    const std::size_t size =
        newline == std::string_view::npos ? std::min(text.size(), kMaxFileLineBytes) : newline + 1;
    const std::string_view piece = text.substr(0, size);
    text.remove_prefix(size);
    return piece;
}

bool begins_with_key(std::string_view line, std::string_view key)
{
    return line.size() > key.size() && line.starts_with(key) &&
           kSeparators.find(line[key.size()]) != std::string_view::npos;
}

// Where the value begins, after the key and its run of separators.
std::size_t value_start(std::string_view line, std::string_view key)
{
    const std::size_t at = line.find_first_not_of(kSeparators, key.size());
    return at == std::string_view::npos ? line.size() : at;
}

std::string up_to_newline(std::string_view text)
{
    return cut(text.substr(0, text.find('\n')), kMaxValueBytes);
}

} // namespace

std::optional<std::string> kv_find(std::string_view text, std::string_view key)
{
    if (key.empty()) {
        if (text.empty())
            return std::nullopt;
        return up_to_newline(next_piece(text));
    }
    while (!text.empty()) {
        std::string_view line = next_piece(text);
        if (line.front() == '#')
            line.remove_prefix(1);
        if (begins_with_key(line, key))
            return up_to_newline(line.substr(value_start(line, key)));
    }
    return std::nullopt;
}

std::optional<std::string> kv_read(const std::string &path, std::string_view key)
{
    const auto text = read_file(path);
    return text ? kv_find(*text, key) : std::nullopt;
}

std::string kv_unquote(std::string value)
{
    const std::size_t last = value.rfind('"');
    if (last != std::string::npos && last > 0)
        value.resize(last);
    if (value.starts_with('"'))
        value.erase(0, 1);
    return value;
}

std::optional<std::string> quoted_kv_read(const std::string &path, std::string_view key)
{
    auto value = kv_read(path, key);
    if (value)
        value = kv_unquote(std::move(*value));
    return value;
}

std::string kv_replace(std::string_view text, std::string_view key, std::string_view value)
{
    std::string result;
    if (key.empty())
        return result.append(value).append("\n");
    result.reserve(text.size() + key.size() + value.size() + 3);
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = next_piece(rest);
        if (begins_with_key(line, key)) {
            const std::string_view before = text.substr(0, text.size() - rest.size() - line.size());
            result.append(before).append(line.substr(0, value_start(line, key)));
            return result.append(value).append("\n").append(rest);
        }
    }
    result.append(text);
    if (!result.empty() && result.back() != '\n')
        result += '\n'; // the last line stays a line of its own
    return result.append(key).append("=").append(value).append("\n");
}

} // namespace qvcd

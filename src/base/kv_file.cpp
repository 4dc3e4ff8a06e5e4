#include "base/kv_file.h"

#include "base/file_text.h"
#include "base/limits.h"

#include <algorithm>

namespace qvcd {

namespace {

constexpr std::string_view kSeparators = "= \t:";

bool is_separator(char c)
{
    return kSeparators.find(c) != std::string_view::npos;
}

bool begins_with_key(std::string_view line, std::string_view key)
{
    return line.size() > key.size() && line.starts_with(key) && is_separator(line[key.size()]);
}

// Where the value begins, behind the separator at `at` and those that follow it.
std::size_t value_start(std::string_view line, std::size_t at)
{
    const std::size_t first = at + 1;
    at = std::min(line.find_first_not_of(kSeparators, first), line.size());
    return at >= first + 2 && line.substr(at - 2, 2) == "::" ? at - 2 : at;
}

// Where each key wants its value; `done` when its line was found.
struct Wanted {
    std::string_view value;
    bool done = false;
};
using WantedValues = std::unordered_map<std::string_view, Wanted>;

// The wanted key that the line is of: what stands before one of its separators.
WantedValues::iterator key_of(std::string_view line, WantedValues &wanted, std::size_t longest)
{
    for (std::size_t at = line.find_first_of(kSeparators); at != std::string_view::npos && at <= longest;
         at = line.find_first_of(kSeparators, at + 1)) {
        const auto found = wanted.find(line.substr(0, at));
        if (found != wanted.end() && !found->second.done)
            return found;
    }
    return wanted.end();
}

} // namespace

TextLine next_line(std::string_view &text)
{
    const std::size_t newline = text.find('\n');
    const std::size_t size = newline == std::string_view::npos ? text.size() : newline + 1;
    std::size_t length = newline == std::string_view::npos ? size : newline;
    if (length > 0 && text[length - 1] == '\r')
        --length;
    const TextLine line{text.substr(0, length), text.substr(length, size - length)};
    text.remove_prefix(size);
    return line;
}

void append_line(std::string &text, std::string_view line)
{
    const std::size_t first = text.find('\n');
    const bool dos = first != std::string::npos && first > 0 && text[first - 1] == '\r';
    const std::string_view end = dos ? "\r\n" : "\n";
    if (!text.empty() && text.back() != '\n')
        text += text.back() == '\r' ? "\n" : end; // the last line stays a line of its own
    text.append(line).append(end);
}

namespace {

// The value of the first of the lines that are of `key`: next(line) gives them one after the other.
template <class Next>
std::optional<std::string> first_value(std::string_view key, Next next)
{
    std::optional<std::string> commented_out;
    for (std::string_view line; next(line);) {
        const bool comment = line.starts_with('#') && !key.starts_with('#');
        if (comment)
            line.remove_prefix(1);
        if (!begins_with_key(line, key))
            continue;
        std::string value(line.substr(value_start(line, key.size())));
        if (!comment)
            return value;
        if (!commented_out)
            commented_out = std::move(value);
    }
    return commented_out;
}

} // namespace

std::optional<std::string> kv_find(std::string_view text, std::string_view key)
{
    if (key.empty())
        return text.empty() ? std::nullopt : std::optional<std::string>(next_line(text).text);
    return first_value(key, [&](std::string_view &line) {
        if (text.empty())
            return false;
        line = next_line(text).text;
        return true;
    });
}

KvIndex::KvIndex(std::string_view text) : text_(text)
{
    while (!text.empty()) {
        const std::string_view line = next_line(text).text;
        const std::string_view said = line.substr(line.starts_with('#') ? 1 : 0);
        if (const std::size_t end = said.find_first_of(kSeparators); end != std::string_view::npos)
            lines_[said.substr(0, end)].push_back(line);
    }
}

std::optional<std::string> KvIndex::find(std::string_view key) const
{
    if (key.empty() || key.starts_with('#')) // keys that are found in other ways
        return kv_find(text_, key);
    const auto found = lines_.find(key.substr(0, key.find_first_of(kSeparators)));
    if (found == lines_.end())
        return std::nullopt;
    auto at = found->second.begin();
    return first_value(key, [&](std::string_view &line) {
        if (at == found->second.end())
            return false;
        line = *at++;
        return true;
    });
}

bool kv_holds(std::string_view text, std::string_view key)
{
    while (!text.empty()) {
        if (begins_with_key(next_line(text).text, key))
            return true;
    }
    return false;
}

const char *kv_refuses(std::string_view key, std::string_view value)
{
    if (key.empty() || key.starts_with('#') || !is_one_line(key))
        return "there is no key to write it under";
    if (!is_one_line(value))
        return "it has more than one line";
    const std::string_view lead = value.substr(0, value.find_first_not_of(kSeparators));
    return lead.empty() || lead == "::" ? nullptr : "it would not read back: it begins like a separator";
}

std::string kv_replace(std::string_view text, std::span<const KeyValue> values)
{
    WantedValues wanted;
    std::size_t longest = 0;
    for (const KeyValue &pair : values) {
        wanted[pair.key].value = pair.value;
        longest = std::max(longest, pair.key.size());
    }
    std::string result;
    result.reserve(text.size() + 64 * values.size());
    while (!text.empty()) {
        const TextLine line = next_line(text);
        const auto found = key_of(line.text, wanted, longest);
        if (found == wanted.end()) {
            result.append(line.text).append(line.end);
            continue;
        }
        found->second.done = true;
        const std::size_t key = found->first.size();
        std::string_view lead = line.text.substr(0, value_start(line.text, key));
        while (lead.ends_with("::") && lead.size() > key + 2) // would count as the value's beginning
            lead.remove_suffix(1);
        result.append(lead).append(found->second.value).append(line.end);
    }
    for (const KeyValue &pair : values) {
        Wanted &rest = wanted[pair.key];
        if (!rest.done)
            append_line(result, std::string(pair.key).append("=").append(rest.value));
        rest.done = true;
    }
    return result;
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

std::optional<std::string> kv_read(const std::string &path, std::string_view key)
{
    const auto text = read_file(path);
    auto value = text ? kv_find(*text, key) : std::nullopt;
    return value ? std::optional(cut(*value, kMaxValueBytes)) : std::nullopt;
}

std::optional<std::string> quoted_kv_read(const std::string &path, std::string_view key)
{
    const auto text = read_file(path);
    auto value = text ? kv_find(*text, key) : std::nullopt;
    return value ? std::optional(cut(kv_unquote(std::move(*value)), kMaxValueBytes)) : std::nullopt;
}

} // namespace qvcd

// Fuzzing of the writers of other programs' configuration files. The input's first line is the writer's
// number, then come a key, a value, another key and its value, and the file's text. What was written reads
// back; what was not asked for stands as it stood; and to write it again changes nothing.

#include "base/kv_file.h"
#include "funcs/ntp.h"
#include "funcs/write_functions.h"
#include "fuzz.h"

#include <algorithm>
#include <vector>

namespace {

using qvcd::KeyValue;

std::optional<std::string> find_quoted(std::string_view text, std::string_view key)
{
    const auto value = qvcd::kv_find(text, key);
    return value ? std::optional(qvcd::kv_unquote(*value)) : std::nullopt;
}

struct Format {
    const qvcd::TextWriter &writer;
    std::optional<std::string> (*find)(std::string_view text, std::string_view key);
};

const Format kFormats[] = {
    {qvcd::kv_writer, qvcd::kv_find},
    {qvcd::quoted_writer, find_quoted},
    {qvcd::ntp_writer, qvcd::ntp_find},
};

bool is_separator(char c)
{
    return std::string_view("= \t:").find(c) != std::string_view::npos;
}

// Lines of the one are lines of the other.
bool overlap(std::string_view a, std::string_view b)
{
    if (a.size() > b.size())
        std::swap(a, b);
    return b.starts_with(a) && (a.size() == b.size() || is_separator(b[a.size()]));
}

// What a last line without an end gets when another follows.
std::string_view without_end(std::string_view line)
{
    return line.substr(0, line.find_last_not_of('\r') + 1);
}

std::vector<std::string_view> lines_of(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty())
        lines.push_back(take_line(text));
    return lines;
}

// At most so many lines differ; further ones stand at the end.
void require_kept(std::string_view old_text, std::string_view new_text, std::size_t changes)
{
    const auto before = lines_of(old_text);
    const auto after = lines_of(new_text);
    require(after.size() >= before.size());
    std::size_t changed = after.size() - before.size();
    for (std::size_t i = 0; i < before.size(); ++i) {
        const bool last = i + 1 == before.size();
        changed += (last ? without_end(before[i]) != without_end(after[i]) : before[i] != after[i]) ? 1 : 0;
    }
    require(changed <= changes);
}

// As settings and their keys are.
bool is_clean(const std::string &text)
{
    return std::ranges::none_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

void check(const Format &format, std::string_view text, const qvcd::Values &values)
{
    const std::string out = format.writer.rewrite(text, values);
    for (const KeyValue &pair : values.given) {
        require(format.writer.holds(out, pair.key));
        require(format.find(out, pair.key) == pair.value);
    }
    require(format.writer.rewrite(out, values) == out);
    if (&format.writer == &qvcd::ntp_writer)
        return; // every "server" line becomes one
    require_kept(text, out, values.given.size());
    for (const std::string_view line : lines_of(text)) {
        const std::string word(line.substr(0, line.find_first_of("= \t:\r")));
        const bool asked_for =
            std::ranges::any_of(values.given, [&](const KeyValue &pair) { return overlap(pair.key, word); });
        if (!word.empty() && word.front() != '#' && !asked_for)
            require(format.find(out, word) == format.find(text, word));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::string_view input = view_of(data, size);
    const std::string_view number = take_line(input);
    const Format &format =
        kFormats[number.empty() ? 0 : static_cast<unsigned char>(number[0]) % std::size(kFormats)];
    qvcd::Values values{{},
                        {{"server", "pool.example.org"}}}; // the second counts for the NTP daemon's file only
    for (int i = 0; i < 2; ++i) {
        KeyValue pair{std::string(take_line(input)), std::string(take_line(input))};
        if (is_clean(pair.key) && is_clean(pair.value) && !format.writer.refuses(pair.key, pair.value))
            values.given.push_back(std::move(pair));
    }
    const bool ambiguous = values.given.size() == 2 && overlap(values.given[0].key, values.given[1].key);
    if (!values.given.empty() && !ambiguous)
        check(format, input, values);
    return 0;
}

#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <system_error>

namespace qvcd {

std::vector<std::string> split_words(std::string_view text, std::string_view separators)
{
    std::vector<std::string> words;
    for (std::size_t at = text.find_first_not_of(separators); at != std::string_view::npos;) {
        const std::size_t end = text.find_first_of(separators, at);
        words.emplace_back(text.substr(at, end - at));
        at = end == std::string_view::npos ? end : text.find_first_not_of(separators, end);
    }
    return words;
}

std::int64_t c_int64(std::string_view text)
{
    return std::strtoll(std::string(text).c_str(), nullptr, 10);
}

int c_int(std::string_view text)
{
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<std::int64_t>(c_int64(text), Limits::min(), Limits::max()));
}

std::optional<std::int64_t> parse_int64(std::string_view text)
{
    std::int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

unsigned c_hex16(std::string_view text)
{
    return static_cast<unsigned>(std::strtoul(std::string(text).c_str(), nullptr, 16) & 0xffffU);
}

std::optional<Timecode> parse_timecode(std::string_view text)
{
    constexpr std::string_view kForm = "yyyymmddThh:mm:ss";
    if (text.size() != kForm.size() || text[8] != 'T' || text[11] != ':' || text[14] != ':')
        return std::nullopt;
    const auto field = [text](std::size_t at, std::size_t size) {
        return std::string(text.substr(at, size));
    };
    return Timecode{field(0, 4), field(4, 2), field(6, 2), field(9, 2), field(12, 2), field(15, 2)};
}

std::tm local_time(const Timecode &code)
{
    std::tm local{};
    local.tm_year = c_int(code.year) - 1900;
    local.tm_mon = c_int(code.month) - 1;
    local.tm_mday = c_int(code.day);
    local.tm_hour = c_int(code.hour);
    local.tm_min = c_int(code.minute);
    local.tm_sec = c_int(code.second);
    local.tm_isdst = -1;
    return local;
}

namespace {

constexpr std::uint64_t kEachByte = 0x0101010101010101;

// The high bit of each byte that is a control character. One above such a byte may be told too: what counts
// is whether there is any.
constexpr std::uint64_t controls(std::uint64_t bytes)
{
    const std::uint64_t no_blank = (bytes - kEachByte * ' ') & ~bytes; // below 0x20
    const std::uint64_t rest = bytes ^ kEachByte * 0x7f;
    const std::uint64_t no_rest = (rest - kEachByte) & ~rest; // 0x7f
    return (no_blank | no_rest) & kEachByte * 0x80;
}

} // namespace

// Eight bytes at a time: names and values are too short for vectors.
bool is_one_line(std::string_view text)
{
    std::uint64_t found = 0;
    std::uint64_t bytes = 0;
    for (; text.size() >= sizeof bytes; text.remove_prefix(sizeof bytes)) {
        std::memcpy(&bytes, text.data(), sizeof bytes);
        found |= controls(bytes);
    }
    bytes = kEachByte * ' ';
    if (!text.empty())
        std::memcpy(&bytes, text.data(), text.size());
    return (found | controls(bytes)) == 0;
}

std::string one_line(std::string text)
{
    std::ranges::replace_if(text, is_control, ' ');
    return text;
}

std::string to_short_name(std::string_view text)
{
    std::string name;
    for (const char c : text) {
        if (is_ascii_alnum(c) || c == '_')
            name += c;
        else if (c == ' ')
            name += '_';
    }
    return name;
}

namespace {

std::uint64_t now_us()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1000000U + static_cast<std::uint64_t>(t.tv_nsec) / 1000U;
}

} // namespace

Stopwatch::Stopwatch() : start_us_(now_us()) {}

std::uint64_t Stopwatch::elapsed_us() const
{
    return now_us() - start_us_;
}

unsigned long Stopwatch::seconds() const
{
    return static_cast<unsigned long>(elapsed_us() / 1000000U);
}

unsigned long Stopwatch::milliseconds() const
{
    return static_cast<unsigned long>(elapsed_us() % 1000000U / 1000U);
}

} // namespace qvcd
